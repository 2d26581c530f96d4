/// @file host.h  A host of the plugin for tests: loads it as PipeWire does, and keeps what it logs.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <spa/interfaces/audio/aec.h>
#include <spa/support/log.h>
#include <spa/support/plugin.h>

#include <cstdarg>
#include <map>
#include <string>
#include <vector>

namespace qv::test {

/// Keeps every line from `info` on, as a daemon would that is asked for it.
struct Log {
  spa_log log{};
  std::string text;

  static void keep(void *object, spa_log_level, const spa_log_topic *, const char *, int, const char *,
                   const char *format, ...) {
    char line[1000];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    static_cast<Log *>(object)->text += std::string(line) + "\n";
  }

  Log() {
    static constexpr spa_log_methods methods = {
        .version = SPA_VERSION_LOG_METHODS, .log = {}, .logv = {}, .logt = keep, .logtv = {}, .topic_init = {}};
    log.iface = {SPA_TYPE_INTERFACE_Log, SPA_VERSION_LOG, {&methods, this}};
    log.level = SPA_LOG_LEVEL_INFO;
  }
};

/// The factory of the plugin that has been built.
inline const spa_handle_factory *find_factory() {
  void *library = dlopen(QVVOICE_PLUGIN, RTLD_NOW);
  EXPECT_TRUE(library) << dlerror();
  if (!library)
    return nullptr;
  const auto list = spa_handle_factory_enum_func_t(dlsym(library, SPA_HANDLE_FACTORY_ENUM_FUNC_NAME));
  EXPECT_TRUE(list);
  const spa_handle_factory *factory = nullptr, *second = nullptr;
  uint32_t index = 0;
  EXPECT_EQ(list(&factory, &index), 1);
  EXPECT_EQ(list(&second, &index), 0) << "one factory";
  EXPECT_STREQ(factory->name, "audio.aec");
  return factory;
}

/// One instance, with its own log.
struct Host {
  using Args = std::map<std::string, std::string>;
  using Signal = std::vector<float>;
  using Channels = std::vector<Signal>;

  Log log;
  std::vector<char> memory;
  spa_audio_aec *aec = nullptr;
  int status; ///< of init

  Host(const Args &args, uint32_t rate, uint32_t channels) {
    const auto *factory = find_factory();
    memory.resize(factory->get_size(factory, nullptr));
    const spa_support support = {SPA_TYPE_INTERFACE_Log, &log.log};
    EXPECT_EQ(factory->init(factory, handle(), nullptr, &support, 1), 0);
    void *interface = nullptr;
    EXPECT_LT(handle()->get_interface(handle(), "Spa:Pointer:Interface:Other", &interface), 0);
    EXPECT_EQ(handle()->get_interface(handle(), "Spa:Pointer:Interface:Audio:AEC", &interface), 0);
    aec = static_cast<spa_audio_aec *>(interface);
    std::vector<spa_dict_item> items;
    for (const auto &[key, value] : args)
      items.push_back({key.c_str(), value.c_str()});
    const spa_dict dict = SPA_DICT_INIT(items.data(), uint32_t(items.size()));
    spa_audio_info_raw info{};
    info.rate = rate;
    info.channels = channels;
    status = spa_audio_aec_init(aec, &dict, &info);
  }
  ~Host() { handle()->clear(handle()); }
  Host(const Host &) = delete;

  spa_handle *handle() { return reinterpret_cast<spa_handle *>(memory.data()); }

  /// Runs signals through in blocks of the given lengths, over and over; the last may be shorter.
  /// @return what came out in every channel
  Channels run(const Channels &mic, const Channels &ref, const std::vector<uint32_t> &blocks) {
    Channels out(mic.size(), Signal(mic[0].size()));
    std::vector<const float *> m(mic.size()), r(mic.size());
    std::vector<float *> o(mic.size());
    int failed = 0;
    for (size_t at = 0, b = 0; at < mic[0].size(); ++b) {
      const auto count = std::min<size_t>(blocks[b % blocks.size()], mic[0].size() - at);
      for (size_t c = 0; c < mic.size(); ++c) {
        m[c] = &mic[c][at];
        r[c] = &ref[c][at];
        o[c] = &out[c][at];
      }
      failed |= run_block(m.data(), r.data(), o.data(), uint32_t(count));
      at += count;
    }
    EXPECT_EQ(failed, 0);
    return out;
  }

  virtual int run_block(const float *mic[], const float *ref[], float *out[], uint32_t count) {
    return spa_audio_aec_run(aec, mic, ref, out, count);
  }
};

} // namespace qv::test
