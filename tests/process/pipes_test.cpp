// The command in a shell line: what comes and goes through pipes is what files hold, at once and in constant memory.

#include <sys/resource.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>

#include "process_fixture.h"

namespace qv::tool {
namespace {

/// A shell line with the command as $Q, in the folder of the recordings.
class Pipes : public Process {
protected:
  Pipes() {
    Samples both;
    for (size_t i = 0; i < mic.size(); ++i)
      both.insert(both.end(), {mic[i], ref[i]});
    put_wav("m.wav", 48000, mic);
    put_wav("r.wav", 48000, ref);
    put_wav("both.wav", 48000, both, 2);
    for (const std::string name : {"m", "r"})
      put(name + ".raw", samples_only(bytes_of(at(name + ".wav"))));
    EXPECT_EQ(process("--mic m.wav --ref r.wav --out files.wav --trace files.csv").status, 0);
  }
  static std::string samples_only(const std::string &wav) { return wav.substr(std::min<size_t>(44, wav.size())); }
  CommandResult shell(const std::string &line) const {
    put("line.sh", "cd " + folder.string() + "\nQ='" QVVOICE_COMMAND " process'\n" + line + "\n");
    const int status =
        std::system(("bash " + at("line.sh") + " >" + at("shell.out") + " 2>" + at("shell.err")).c_str());
    return {WEXITSTATUS(status), bytes_of(at("shell.out")), bytes_of(at("shell.err"))};
  }
  const Samples mic = test::noise_samples(3, 100000, 9000), ref = test::noise_samples(4, 100000, 9000);
};

// Whatever a recording comes through or goes to, what is sent is the same.
TEST_F(Pipes, give_the_samples_that_files_give) {
  const std::string expected = samples_only(bytes_of(at("files.wav"))), trace = bytes_of(at("files.csv"));
  ASSERT_EQ(expected.size(), 2 * 33333u);
  const std::string header_of_unknown_length = std::string("RIFF\xff\xff\xff\xffWAVE");
  for (const char *line : {
           "cat both.wav | $Q --stereo - --out - | cat",
           "cat m.wav | $Q --mic - --ref r.wav --out -",
           "cat both.wav | $Q --mic - --mic-channel 1 --ref - --ref-channel 2 --out -",
           "$Q --mic <(cat m.wav) --ref <(cat r.wav) --out -",
           "(head -c 40 m.wav; printf '\\xff\\xff\\xff\\xff'; cat m.raw) | $Q --mic - --ref r.wav --out -",
           "(head -c 40 m.wav; printf '\\x00\\x00\\x00\\x00'; cat m.raw) | $Q --mic - --ref r.wav --out -",
       }) {
    const CommandResult result = shell(line);
    EXPECT_EQ(result.status, 0) << line << result.err;
    EXPECT_TRUE(result.out.starts_with(header_of_unknown_length)) << line;
    EXPECT_TRUE(samples_only(result.out) == expected) << line << result.err;
    EXPECT_NE(result.err.find("processed"), std::string::npos) << line << result.err;
  }
  const CommandResult raw =
      shell("$Q --raw s16le --raw-rate 48000 --mic - --ref <(cat r.raw) --out - --raw-out <m.raw");
  EXPECT_TRUE(raw.out == expected) << raw.err;
  EXPECT_TRUE(shell("$Q --stereo - --out files.wav --trace - <both.wav").out == trace);
}

// A live source is heard at once: most of the first second is sent before the second one comes.
TEST_F(Pipes, wait_for_nothing_that_they_do_not_need) {
  const CommandResult live = shell("mkfifo in out\n"
                                   "$Q --raw s16le --raw-rate 48000 --mic in --ref r.raw --out out --raw-out >&2 &\n"
                                   "exec 3>in 4<out\n"
                                   "head -c 96000 m.raw >&3\n"
                                   "timeout 20 head -c 28000 <&4\n"
                                   "exec 3>&-\n"
                                   "wait");
  EXPECT_TRUE(live.out == samples_only(bytes_of(at("files.wav"))).substr(0, 28000)) << live.err;
}

TEST_F(Pipes, say_what_is_wrong_with_them_and_leave_no_half_file) {
  const std::pair<const char *, const char *> cases[] = {
      {"head -c 150001 m.wav | $Q --mic - --ref r.wav --out o.wav",
       "standard input: cut short: its header promises 200000 bytes of samples, 149957 are there"},
      {"head -c 30 m.wav | $Q --mic - --ref r.wav --out o.wav", "standard input: broken: a WAV file without its part"},
      {"head -c 1001 m.raw | $Q --raw s16le --raw-rate 8000 --mic - --ref r.wav --out o.wav",
       "standard input: 1001 bytes are not a whole number of s16le samples"},
      {"$Q --stereo - --out o.wav </dev/null", "standard input: is empty"},
      {"cat m.wav | $Q --stereo - --out o.wav", "standard input: --stereo takes a file of 2 channels"},
      {"cat m.raw | $Q --mic - --ref r.wav --out o.wav",
       "is not WAV, Wave64 or AIFF, which are what is read from a pipe"},
      {"$Q --mic - --ref r.wav --out o.wav <&-", "standard input: cannot be read"},
      {"set -o pipefail; $Q --mic m.wav --ref r.wav --out - | head -c 100 >/dev/null",
       "standard output: writing failed: what reads the pipe has closed it"},
  };
  const auto before = paths();
  for (const auto &[line, reason] : cases) {
    const CommandResult result = shell(line);
    EXPECT_EQ(result.status, 2) << line;
    EXPECT_NE(result.err.find(reason), std::string::npos) << line << ": " << result.err;
    for (const char *file : {"line.sh", "shell.out", "shell.err"})
      fs::remove(at(file));
    EXPECT_EQ(paths(), before) << line;
  }
}

// Recordings and parameters are named alike everywhere.
TEST_F(Pipes, are_the_exception_and_every_verb_takes_a_stereo_file_and_any_form_of_parameters) {
  ASSERT_EQ(run_command(folder, "para show clear-16k-20ms --out p.toml").status, 0);
  ASSERT_EQ(run_command(folder, "para pack p.toml --out p.para").status, 0);
  const auto json = [&](const std::string &words) {
    const CommandResult result = run_command(folder, words + " --json");
    EXPECT_LT(result.status, 2) << words << result.err;
    return result.status < 2 ? nlohmann::json::parse(result.out) : nlohmann::json();
  };
  const auto numbers = [&](const std::string &recording) {
    auto found = json("measure " + recording)["recordings"][0]["measures"];
    found.erase("real_time_factor");
    found.erase("worst_frame_percent");
    for (const auto &check : json("diagnose " + recording)["checks"])
      found.push_back({check["name"], check["numbers"]});
    return found;
  };
  const auto expected = numbers("--mic m.wav --ref r.wav");
  EXPECT_GT(expected.size(), 30u);
  for (const std::string parameters : {"--para p.toml", "--preset p.para", "--preset clear-16k-20ms"}) {
    EXPECT_EQ(numbers("--stereo both.wav " + parameters), expected) << parameters;
    const CommandResult page = run_command(folder, "report --stereo both.wav --out page.html " + parameters);
    EXPECT_EQ(page.status, 0) << parameters << page.err;
  }
}

// What a run holds does not grow with what it reads: half an hour needs no more than twenty seconds.
TEST_F(Pipes, take_any_length_in_constant_memory) {
  const auto peak_kib = [&](int seconds) {
    put("line.sh", "cd " + folder.string() + "\nset -e -o pipefail\nhead -c " + std::to_string(64000L * seconds) +
                       " /dev/zero | " QVVOICE_COMMAND " process --raw s16le --raw-rate 16000 --raw-channels 2 "
                       "--stereo - --preset noise-only-16k-20ms --out o.wav --trace o.csv >o.txt\n");
    const pid_t shell = fork();
    if (shell == 0)
      execl("/bin/bash", "bash", at("line.sh").c_str(), nullptr);
    int status = -1;
    rusage used{};
    EXPECT_EQ(wait4(shell, &status, 0, &used), shell);
    EXPECT_EQ(status, 0);
    return used.ru_maxrss;
  };
  const long little = peak_kib(90), much = peak_kib(1800);
  EXPECT_GT(little, 1000);
  EXPECT_LT(much, little + 4096); // the samples alone would be 115 MB, the trace 40 MB
}

} // namespace
} // namespace qv::tool
