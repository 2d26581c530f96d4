// Writes the calls, the parameter files and what the library makes of them; compares two such folders.

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <span>
#include <stdexcept>
#include <string>

#include "call.h"
#include "dsp/layout.h"
#include "parameters.h"
#include "qvvoice/qvvoice.h"

namespace {

namespace fs = std::filesystem;
using vectors::Call;
using vectors::StageSet;

/// 16-bit samples or words, little-endian on any machine.
void write_words(const fs::path &path, std::span<const int16_t> words) {
  std::ofstream file(path, std::ios::binary);
  for (const int16_t word : words)
    file.put(char(word & 0xff)).put(char(word >> 8 & 0xff));
  if (!file.flush())
    throw std::runtime_error("cannot write " + path.string());
}

std::vector<int16_t> read_words(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    throw std::runtime_error("cannot read " + path.string());
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  std::vector<int16_t> words(bytes.size() / 2);
  for (size_t i = 0; i < words.size(); ++i)
    words[i] = int16_t(uint8_t(bytes[2 * i]) | uint8_t(bytes[2 * i + 1]) << 8);
  return words;
}

void require_ok(int32_t status) {
  if (status != QV_VOICE_OK)
    throw std::runtime_error(QV_VOICE_StatusText(status));
}

/// Runs the whole frames of a call through both paths.
void process(const Call &call, const fs::path &parameters, const qv::Layout &layout, const fs::path &stem) {
  std::srand(1); // the comfort noise draws from the C library's generator
  require_ok(QV_VOICE_Init(parameters.c_str(), layout.rate, layout.frame_len));
  const auto n = size_t(layout.frame_len);
  std::vector<int16_t> tx(call.mic.size() / n * n), rx(tx.size());
  for (size_t at = 0; at < tx.size(); at += n) {
    require_ok(QV_VOICE_ProcessRx(&call.rx[at], &rx[at], uint32_t(n)));
    require_ok(QV_VOICE_ProcessTx(&call.mic[at], &call.far[at], &tx[at], uint32_t(n)));
  }
  require_ok(QV_VOICE_Destory());
  write_words(stem.string() + "-tx.s16", tx);
  write_words(stem.string() + "-rx.s16", rx);
}

/// One rate's calls, parameter files and outputs; of the outputs those with `only` in their name.
void write_rate(const fs::path &folder, int32_t rate, std::string_view only) {
  const std::string name = std::to_string(rate);
  const Call call = vectors::make_call(rate);
  write_words(folder / (name + "-far.s16"), call.far);
  write_words(folder / (name + "-mic.s16"), call.mic);
  write_words(folder / (name + "-rx.s16"), call.rx);
  for (const StageSet &set : vectors::stage_sets) {
    const fs::path parameters = folder / (name + "-" + std::string(set.name) + ".par");
    write_words(parameters, vectors::make_image(set, rate));
    for (const qv::Layout &layout : qv::layouts) {
      const std::string stem = name + "-" + std::to_string(layout.frame_len) + "-" + std::string(set.name);
      if (layout.rate == rate && stem.find(only) != stem.npos)
        process(call, parameters, layout, folder / stem);
    }
  }
}

int write_vectors(const fs::path &folder, std::string_view only) {
  Dl_info library;
  if (dladdr(reinterpret_cast<const void *>(QV_VOICE_Version), &library))
    std::cerr << "library: " << library.dli_fname << "\n";
  fs::create_directories(folder);
  for (const int32_t rate : qv::served_rates)
    write_rate(folder, rate, only);
  return 0;
}

struct Comparison {
  size_t samples = 0, differing = 0, beyond_one = 0;
  int largest = 0;

  void add(const std::vector<int16_t> &a, const std::vector<int16_t> &b) {
    for (size_t i = 0; i < a.size(); ++i) {
      const int difference = std::abs(a[i] - b[i]);
      differing += difference > 0;
      beyond_one += difference > 1;
      largest = std::max(largest, difference);
    }
    samples += a.size();
  }
  bool within_one_lsb() const { return samples > 0 && beyond_one <= samples / 10000; }
  void print(const std::string &name) const {
    std::printf("%-24s %9zu %10zu %9zu %8d\n", name.c_str(), samples, differing, beyond_one, largest);
  }
};

std::set<std::string> sample_files(const fs::path &folder) {
  std::set<std::string> names;
  for (const auto &entry : fs::directory_iterator(folder))
    if (entry.path().extension() == ".s16")
      names.insert(entry.path().filename());
  return names;
}

int compare_folders(const fs::path &a, const fs::path &b) {
  const auto names = sample_files(a);
  if (names.empty() || names != sample_files(b))
    throw std::runtime_error(a.string() + " and " + b.string() + " do not hold the same .s16 files");
  Comparison all;
  bool good = true;
  std::printf("%-24s %9s %10s %9s %8s\n", "file", "samples", "differing", "beyond 1", "largest");
  for (const std::string &name : names) {
    const auto left = read_words(a / name), right = read_words(b / name);
    if (left.size() != right.size())
      throw std::runtime_error(name + ": " + std::to_string(left.size()) + " samples against " +
                               std::to_string(right.size()));
    Comparison one;
    one.add(left, right);
    all.add(left, right);
    good &= one.within_one_lsb();
    if (one.differing > 0)
      one.print(name);
  }
  all.print("all");
  return good ? 0 : 1;
}

constexpr char usage[] =
    R"(usage: qvvoice_vectors write FOLDER [NAME]      calls, parameter files and the library's output;
                                                of the output only files with NAME in their name
       qvvoice_vectors compare FOLDER FOLDER    samples that differ; exit status 1 when in any file
                                                more than 1 in 10000 differ by more than 1
example: qvvoice_vectors write out && cd out && sha256sum -c --quiet ../tests/vectors/outputs.sha256
)";

} // namespace

int main(int argc, char **argv) try {
  const std::string verb = argc > 1 ? argv[1] : "";
  if (verb == "write" && (argc == 3 || argc == 4))
    return write_vectors(argv[2], argc == 4 ? argv[3] : "");
  if (verb == "compare" && argc == 4)
    return compare_folders(argv[2], argv[3]);
  std::cerr << usage;
  return 2;
} catch (const std::exception &error) {
  std::cerr << "qvvoice_vectors: " << error.what() << "\n";
  return 2;
}
