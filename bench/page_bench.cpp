// What the tuner's page costs in a browser: a call of one minute rendered anew, beside the same by the library; the
// longest task of the page while a slider is dragged, which on a busy machine is also what others take from it; the
// size of the engine.
//   page_bench PAGE.html CALL_FOLDER   (build/page/tuner.html web/call)

#include <algorithm>
#include <chrono>
#include <filesystem>

#include <fmt/format.h>

#include "audio/audio.h"
#include "call/run.h"
#include "report/browser.h"
#include "signal/signal.h"

namespace {

using namespace qv::tool;
using qv::test::Browser, qv::test::Json;

constexpr int rate = 16000, frame_ms = 20, repeats = 7, drags = 5;
constexpr size_t length = 60 * rate;

/// A recording, again and again for a minute.
Samples minute_of(const std::string &path) {
  const Samples once = read_audio({path}).audio.samples;
  Samples all(length);
  for (size_t i = 0; i < length; ++i)
    all[i] = once[i % once.size()];
  return all;
}

double seconds_of(const auto &work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// Page and library in turn, as the machine may be busy.
void compare(Browser &browser, const std::string &preset, const Samples &mic, const Samples &ref) {
  const Setup setup = make_setup(preset, rate, frame_ms);
  browser.evaluate("window.words = null, window.engine.ask('preset', {name: '" + preset +
                   "'}).then(file => { words = file.words; })");
  std::vector<double> page, library;
  for (int k = 0; k < repeats; ++k) {
    page.push_back(browser.evaluate(
        "(async () => { const begin = performance.now(); await window.engine.ask('render', {slot: 'a', "
        "words, frame_ms: " +
        std::to_string(frame_ms) + "}); return (performance.now() - begin) / 1000; })()"));
    library.push_back(seconds_of([&] { run_tx(setup, mic, ref, {.compensate = true, .progress = {}}); }));
  }
  fmt::print("{:<20} page {:.2f} s   library {:.2f} s   ratio {:.2f}   (medians of {})\n", preset, median(page),
             median(library), median(page) / median(library), repeats);
}

/// In the folder for such files, under the roles' names. @return paths
std::vector<std::string> put_files(const Samples &mic, const Samples &ref) {
  std::vector<std::string> paths;
  for (const auto &[name, samples] : {std::pair("mic.wav", &mic), {"ref.wav", &ref}}) {
    paths.push_back(std::filesystem::temp_directory_path() / name);
    OutputFile file(paths.back());
    write_wav(file, {rate, *samples});
    file.commit();
  }
  return paths;
}

/// The slider of the noise reducer, from one end to the other and back within about 6 s.
void drag(Browser &browser) {
  const Json box =
      browser.evaluate("(slider => { slider.scrollIntoView({block: 'center'}); const {left, right, top, bottom} = "
                       "slider.getBoundingClientRect(); return [left + 8, right - 8, (top + bottom) / 2]; })"
                       "(document.querySelector('#field-tx\\\\.anr\\\\.noise_scale input[type=range]'))");
  const double left = box[0], right = box[1];
  const auto mouse = [&](const char *type, double share) {
    browser.call("Input.dispatchMouseEvent", {{"type", type},
                                              {"x", left + share * (right - left)},
                                              {"y", box[2]},
                                              {"button", "left"},
                                              {"buttons", 1},
                                              {"clickCount", 1}});
  };
  mouse("mousePressed", 0);
  for (int k = 1; k <= 200; ++k) {
    mouse("mouseMoved", k <= 100 ? k / 100.0 : 2 - k / 100.0);
    browser.evaluate("new Promise(done => setTimeout(done, 30))");
  }
  mouse("mouseReleased", 0);
}

void measure_drag(Browser &browser, const std::vector<std::string> &files) {
  browser.evaluate("byId('signals').dataset.state = ''");
  browser.choose_files("byId('pick-files')", files);
  if (!browser.comes_true("player.seconds === 60 && byId('signals').dataset.state === 'done'"))
    throw std::runtime_error("the call of a minute is not rendered");
  browser.evaluate("window.tasks = [], new PerformanceObserver(list => tasks.push(...list.getEntries()"
                   ".map(task => task.duration))).observe({type: 'longtask'}), window.renders = new Set(), "
                   "setInterval(() => renders.add(player.buffers.get('a')), 10), 0");
  for (int k = 0; k < drags; ++k) {
    browser.evaluate("tasks.length = 0, renders.clear()");
    drag(browser);
    const std::vector<double> tasks = browser.evaluate("tasks");
    fmt::print("slider dragged in a call of a minute: {} outputs heard, longest task {}\n",
               browser.evaluate("renders.size - 1").get<int>(),
               tasks.empty() ? "below 50 ms" : fmt::format("{:.0f} ms", *std::ranges::max_element(tasks)));
  }
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3)
    return fmt::print(stderr, "page_bench PAGE.html CALL_FOLDER\n"), 2;
  const std::string folder = argv[2];
  const Samples mic = minute_of(folder + "/mic.flac"), ref = minute_of(folder + "/ref.flac");
  Browser browser;
  browser.open(std::filesystem::absolute(argv[1]));
  fmt::print("engine {:.0f} kB gzipped\n",
             browser.evaluate("bytesOf(byId('engine').textContent).length").get<double>() / 1000);
  browser.evaluate(
      "(async () => { window.engine = new Client(await WebAssembly.compile(await engineBytes())); const samples = "
      "await "
      "Promise.all(builtInFiles().map(async "
      "file => { const {channels: [once]} = await decodeSound(file.name, new Uint8Array(await file.arrayBuffer())); "
      "return Int16Array.from({length: 60 * 16000}, (_, i) => once[i % once.length]); })); "
      "const [mic, ref] = samples.map(samples => ({samples, rate: 16000})); "
      "await window.engine.ask('call', {mic, ref, rate: 16000}); })()");
  for (const char *preset : {"clear-16k-20ms", "balanced-16k-20ms"})
    compare(browser, preset, mic, ref);
  const std::vector<std::string> files = put_files(mic, ref);
  measure_drag(browser, files);
  for (const std::string &file : files)
    std::filesystem::remove(file);
  return 0;
}
