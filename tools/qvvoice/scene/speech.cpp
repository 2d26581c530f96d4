#include "scene/speech.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "audio/audio.h"
#include "support/child.h"
#include "support/error.h"

namespace qv::tool::scene {
namespace {

constexpr double pause_seconds = 0.3; ///< between two recordings

/// Prompts of whole sentences. Every voice has them but for the first, which is in English and Russian only.
constexpr std::array prompts = {
    "basic-pbx-ivr-main",
    "conf-adminmenu",
    "conf-adminmenu-18",
    "conf-usermenu",
    "conf-usermenu-162",
    "confbridge-mute-extended",
    "demo-abouttotry",
    "demo-congrats",
    "demo-enterkeywords",
    "demo-instruct",
    "demo-moreinfo",
    "demo-nogo",
    "dir-instr",
    "dir-intro",
    "dir-intro-fn",
    "priv-callee-options",
    "vm-forwardoptions",
    "vm-instructions",
    "vm-msginstruct",
    "vm-newuser",
    "queue-periodic-announce",
    "vm-options",
    "vm-opts",
    "vm-opts-full",
    "vm-record-prepend",
    "confbridge-lock-extended",
    "vm-review",
    "vm-tempgreeting2",
    "screen-callee-options",
};

const Voice &voice_named(const std::string &name) {
  return *std::ranges::find_if(voices(), [&](const Voice &voice) { return voice.name == name; });
}

Signal decode_g722(const std::string &path) try {
  const ChildResult result = run_child(
      {"ffmpeg", "-hide_banner", "-loglevel", "error", "-f", "g722", "-i", path, "-f", "s16le", "-ac", "1", "-"});
  if (result.status != 0)
    throw InputError("{}: cannot be decoded: {}", path, result.messages);
  Signal signal(result.output.size() / 2);
  for (size_t i = 0; i < signal.size(); ++i)
    signal[i] = int16_t(uint8_t(result.output[2 * i]) | uint8_t(result.output[2 * i + 1]) << 8) / 32768.0;
  return signal;
} catch (const std::system_error &) {
  throw InputError("{}: needs the program ffmpeg to decode it; install the Debian package ffmpeg", path);
}

} // namespace

const std::vector<Voice> &voices() {
  static const std::vector<Voice> all = {
      {"en", "/usr/share/asterisk/sounds/en_US_f_Allison", "asterisk-core-sounds-en"},
      {"ru", "/usr/share/asterisk/sounds/ru_RU_f_IvrvoiceRU", "asterisk-core-sounds-ru"},
      {"fr", "/usr/share/asterisk/sounds/fr_CA_f_June", "asterisk-core-sounds-fr"},
      {"it", "/usr/share/asterisk/sounds/it_IT_m_Carlo", "asterisk-core-sounds-it"},
  };
  return all;
}

std::vector<std::string> SpeechReader::paths(const Speech &speech) const {
  if (speech.voice.empty())
    return speech.files;
  const Voice &voice = voice_named(speech.voice);
  const std::string kind = rate_ == 8000 ? "wav" : "g722";
  std::vector<std::string> found;
  for (const char *prompt : prompts) {
    const std::string path = fmt::format("{}/{}.{}", voice.folder, prompt, kind);
    if (std::filesystem::exists(path))
      found.push_back(path);
  }
  if (found.size() + 1 < prompts.size())
    throw InputError("voice \"{}\" at {} Hz: {} of {} prompts found in {}; install the Debian package {}-{}",
                     voice.name, rate_, found.size(), prompts.size(), voice.folder, voice.package, kind);
  return found;
}

const Signal &SpeechReader::recording(const std::string &path) {
  const auto known = read_.find(path);
  if (known != read_.end())
    return known->second;
  if (path.ends_with(".g722"))
    return read_[path] = decode_g722(path);
  Source source;
  source.path = path;
  Recording file = read_audio(source);
  convert_rate(file, rate_);
  return read_[path] = to_signal(file.audio.samples);
}

Signal SpeechReader::stream(const Speech &speech, size_t count, Random random) {
  std::vector<std::string> order = paths(speech);
  for (size_t i = order.size(); i > 1; --i)
    std::swap(order[i - 1], order[random.below(i)]);
  Signal stream;
  for (size_t next = 0; stream.size() < count; next = (next + 1) % order.size()) {
    const Signal &part = recording(order[next]);
    stream.insert(stream.end(), part.begin(), part.end());
    stream.resize(stream.size() + size_t(pause_seconds * rate_));
  }
  stream.resize(count);
  return stream;
}

} // namespace qv::tool::scene
