// The plugin as PipeWire's module for echo cancelling asks for it: factory "audio.aec", interface Audio:AEC.

#include <spa/interfaces/audio/aec.h>
#include <spa/support/log.h>
#include <spa/support/plugin.h>
#include <spa/utils/names.h>
#include <spa/utils/result.h>
#include <spa/utils/string.h>

#include <cerrno>
#include <exception>
#include <new>

#include "settings.h"

namespace {

using namespace qv::pipewire;

constexpr int least_rate = 8000, greatest_rate = 384000, rate_step = 25; ///< of a graph, Hz

/// A handle that the host has allocated. The host runs blocks on its data thread, and calls the rest from another one
/// while no block runs, but for `activate`.
struct Plugin {
  spa_handle handle;
  spa_audio_aec aec;
  spa_hook_list hooks;
  spa_log *log;
  std::unique_ptr<Canceller> canceller;
  std::string latency; ///< of `aec`
};

/// The blocks that the module is to run, as a duration. The module of 0.3.65 runs one in a cycle of the graph and drops
/// what is over where cycles are longer: these are as long as a graph's, unless it is told to make longer ones, and as
/// the shortest in a virtual machine.
std::string block_at(int rate) { return rate % 11025 == 0 ? "1024/44100" : "1024/48000"; }

Plugin &plugin_of(void *object) { return *static_cast<Plugin *>(object); }

int add_listener(void *object, spa_hook *listener, const spa_audio_aec_events *events, void *data) {
  spa_hook_list_append(&plugin_of(object).hooks, listener, events, data);
  return 0;
}

int init(void *object, const spa_dict *args, const spa_audio_info_raw *info) {
  Plugin &plugin = plugin_of(object);
  plugin.canceller.reset();
  const int rate = int(info->rate), channels = int(info->channels);
  if (rate < least_rate || rate > greatest_rate || rate % rate_step != 0 || channels < 1) {
    spa_log_error(plugin.log,
                  "qvvoice: audio.rate = %d, audio.channels = %d: the rate must be %d to %d Hz in steps of "
                  "%d, and there must be a channel",
                  rate, channels, least_rate, greatest_rate, rate_step);
    return -EINVAL;
  }
  try {
    const Settings settings = read_settings(args);
    plugin.canceller = std::make_unique<Canceller>(settings, rate, channels);
    plugin.latency = block_at(rate);
    plugin.aec.latency = plugin.latency.c_str();
    spa_log_info(plugin.log,
                 "qvvoice %s: %s, %d Hz, frames of %d ms, in a graph of %d Hz with %d channels, delay %.1f ms",
                 QV_VOICE_Version(), settings.parameters.c_str(), settings.rate, settings.frame_ms, rate, channels,
                 1000 * plugin.canceller->delay());
    return 0;
  } catch (const std::bad_alloc &) {
    spa_log_error(plugin.log, "qvvoice: out of memory");
    return -ENOMEM;
  } catch (const std::exception &error) {
    spa_log_error(plugin.log, "qvvoice: %s", error.what());
    return -EINVAL;
  }
}

int run(void *object, const float *rec[], const float *play[], float *out[], uint32_t count) {
  Canceller *canceller = plugin_of(object).canceller.get();
  if (!canceller)
    return -EIO;
  canceller->run(rec, play, out, int(count));
  return 0;
}

/// Between a pause and the next block.
int activate(void *object) {
  if (Canceller *canceller = plugin_of(object).canceller.get())
    canceller->restart();
  return 0;
}

constexpr spa_audio_aec_methods methods = [] {
  spa_audio_aec_methods m{};
  m.version = 2; // the last that has all of these and no more
  m.add_listener = add_listener;
  m.init = init;
  m.run = run;
  m.activate = activate;
  return m;
}();

int get_interface(spa_handle *handle, const char *type, void **interface) {
  if (!handle || !interface)
    return -EINVAL;
  if (!spa_streq(type, SPA_TYPE_INTERFACE_AUDIO_AEC))
    return -ENOENT;
  *interface = &plugin_of(handle).aec;
  return 0;
}

int clear(spa_handle *handle) {
  plugin_of(handle).~Plugin();
  return 0;
}

size_t get_size(const spa_handle_factory *, const spa_dict *) { return sizeof(Plugin); }

int make(const spa_handle_factory *factory, spa_handle *handle, const spa_dict *, const spa_support *support,
         uint32_t support_count) {
  if (!factory || !handle)
    return -EINVAL;
  auto *plugin = new (handle) Plugin{};
  plugin->handle = {SPA_VERSION_HANDLE, get_interface, clear};
  plugin->aec.iface = {SPA_TYPE_INTERFACE_AUDIO_AEC, SPA_VERSION_AUDIO_AEC, {&methods, plugin}};
  plugin->aec.name = "qvvoice";
  plugin->log = static_cast<spa_log *>(spa_support_find(support, support_count, SPA_TYPE_INTERFACE_Log));
  spa_hook_list_init(&plugin->hooks);
  return 0;
}

int enum_interfaces(const spa_handle_factory *factory, const spa_interface_info **info, uint32_t *index) {
  static constexpr spa_interface_info all[] = {{SPA_TYPE_INTERFACE_AUDIO_AEC}};
  if (!factory || !info || !index)
    return -EINVAL;
  if (*index >= std::size(all))
    return 0;
  *info = &all[(*index)++];
  return 1;
}

constexpr spa_handle_factory factory = {
    SPA_VERSION_HANDLE_FACTORY, SPA_NAME_AEC, nullptr, get_size, make, enum_interfaces};

} // namespace

extern "C" SPA_EXPORT int spa_handle_factory_enum(const spa_handle_factory **found, uint32_t *index) {
  if (!found || !index)
    return -EINVAL;
  if (*index > 0)
    return 0;
  *found = &factory;
  ++*index;
  return 1;
}
