// Initialisation, tear-down, and what every call returns in between.

#include <filesystem>
#include <fstream>

#include "images.h"
#include "qvvoice/api/process.h"

namespace {

using namespace qv::test;
using qv::config::Image;

const Layout wide = {16000, 320, 32}, narrow = {8000, 128, 24};

struct LifeCycle : testing::Test {
  std::string path = testing::TempDir() + "qvvoice_life_cycle." + std::to_string(getpid());
  Image image = busy_image(16000), narrow_image = busy_image(8000);
  Samples mic = noise_samples(1, 320, 9000), ref = noise_samples(2, 320, 9000), out = Samples(320, 1234);
  const Samples untouched = out;

  void SetUp() override { as_loaded(); }
  void TearDown() override {
    as_loaded();
    std::filesystem::remove(path);
  }

  /// The library as a new process finds it.
  static void as_loaded() {
    g_swRet = QV_VOICE_OK;
    QV_VOICE_Destory();
    g_stVoicePara = {};
  }

  int32_t init(const Image &words) { return QV_VOICE_InitImage(words.data(), 16000, 320); }
  int32_t init_file(const Image &words, size_t bytes, int32_t rate, int32_t frame_len) {
    std::string content(reinterpret_cast<const char *>(words.data()), sizeof words);
    content.resize(bytes, 'x');
    std::ofstream(path, std::ios::binary) << content;
    return QV_VOICE_Init(path.c_str(), rate, frame_len);
  }

  int32_t tx() { return QV_VOICE_ProcessTx(mic.data(), ref.data(), out.data(), 0); }
  void expect_every_frame_call_to_return(int32_t status) {
    EXPECT_EQ(tx(), status);
    EXPECT_EQ(QV_VOICE_ProcessRx(mic.data(), out.data(), 0), status);
    EXPECT_EQ(VOICE_Process(ref.data(), out.data(), mic.data(), out.data(), 0), status);
    EXPECT_EQ(out, untouched);
  }
};

TEST_F(LifeCycle, files_are_taken_or_refused_and_a_success_clears_the_failure) {
  struct Case {
    const char *what;
    size_t bytes;
    int32_t word0, rate, frame_len, status;
  };
  for (const Case &c : {Case{"500 words", 1000, 16000, 16000, 256, QV_VOICE_OK},
                        {"a longer file", 3000, 16000, 16000, 320, QV_VOICE_OK},
                        {"499 words", 998, 16000, 16000, 320, QV_VOICE_SHORT_FILE},
                        {"half a word short", 999, 16000, 16000, 320, QV_VOICE_SHORT_FILE},
                        {"an empty file", 0, 16000, 16000, 320, QV_VOICE_SHORT_FILE},
                        {"a file for the other rate", 1000, 8000, 16000, 320, QV_VOICE_REFUSED},
                        {"a frame length of no layout", 1000, 16000, 16000, 192, QV_VOICE_REFUSED},
                        {"a rate that is not served", 1000, 32000, 32000, 320, QV_VOICE_REFUSED}}) {
    SCOPED_TRACE(c.what);
    as_loaded();
    out = untouched;
    Image words = image;
    words[0] = int16_t(c.word0);
    EXPECT_EQ(init_file(words, c.bytes, c.rate, c.frame_len), c.status);
    if (c.status != QV_VOICE_OK)
      expect_every_frame_call_to_return(c.status);
    EXPECT_EQ(QV_VOICE_Destory(), c.status);
    EXPECT_EQ(init_file(image, 1000, 16000, 320), QV_VOICE_OK);
    EXPECT_EQ(tx(), QV_VOICE_OK);
  }
  out = untouched;
  for (const char *missing : {"/nowhere/at.all", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(QV_VOICE_Init(missing, 16000, 320), QV_VOICE_NO_FILE);
    expect_every_frame_call_to_return(QV_VOICE_NO_FILE);
  }
  EXPECT_EQ(QV_VOICE_InitImage(nullptr, 16000, 320), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(tx(), QV_VOICE_BAD_ARGUMENT);
}

TEST_F(LifeCycle, without_initialisation_nothing_runs) {
  int32_t delay = -7;
  QvVoiceTrace trace = empty_trace();
  for (int round = 0; round < 2; ++round) {
    expect_every_frame_call_to_return(QV_VOICE_NOT_READY);
    EXPECT_EQ(QV_VOICE_GetLatency(&delay, &delay), QV_VOICE_NOT_READY);
    EXPECT_EQ(QV_VOICE_GetTrace(&trace), QV_VOICE_NOT_READY);
    EXPECT_EQ(delay, -7);
    EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
    EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
    EXPECT_EQ(init(image), QV_VOICE_OK);
    EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
  }
}

TEST_F(LifeCycle, null_buffers_are_refused_and_nothing_moves) {
  ASSERT_EQ(init(image), QV_VOICE_OK);
  const int16_t *const in = mic.data();
  int16_t *const to = out.data();
  for (const int32_t status :
       {QV_VOICE_ProcessTx(nullptr, in, to, 320), QV_VOICE_ProcessTx(in, nullptr, to, 320),
        QV_VOICE_ProcessTx(in, in, nullptr, 320), QV_VOICE_ProcessRx(nullptr, to, 320),
        QV_VOICE_ProcessRx(in, nullptr, 320), VOICE_Process(nullptr, to, in, to, 320),
        VOICE_Process(in, nullptr, in, to, 320), VOICE_Process(in, to, nullptr, to, 320),
        VOICE_Process(in, to, in, nullptr, 320), QV_VOICE_GetTrace(nullptr), QV_VOICE_GetLatency(nullptr, nullptr)})
    EXPECT_EQ(status, QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(out, untouched);
  EXPECT_EQ(trace().tx_frame + trace().rx_frame, 0u);
}

TEST_F(LifeCycle, image_that_converts_nothing_runs_with_what_was_converted_last) {
  Image other = image;
  other[9] = 1110;
  EXPECT_EQ(init(other), QV_VOICE_OK);
  expect_every_frame_call_to_return(QV_VOICE_OK);

  const Call call(narrow, 20);
  ASSERT_EQ(QV_VOICE_InitImage(narrow_image.data(), 8000, 128), QV_VOICE_OK);
  const Outputs expected = run(narrow, call);
  EXPECT_EQ(init_file(other, 1000, 16000, 320), QV_VOICE_OK);
  EXPECT_EQ(run(narrow, call), expected);
}

// File or image, after a tear-down or on top of a running session, whatever ran before: the same call gives the same
// bytes, in joint calls as well.
TEST_F(LifeCycle, every_initialisation_starts_afresh) {
  const Call call(wide, 100);
  ASSERT_EQ(init(image), QV_VOICE_OK);
  const Outputs expected = run(wide, call);
  ASSERT_GT(std::count_if(expected.sent.begin(), expected.sent.end(), [](int16_t x) { return x != 0; }), 10000);
  ASSERT_EQ(init(image), QV_VOICE_OK);
  EXPECT_EQ(run(wide, call), expected);
  ASSERT_EQ(init_file(image, 1000, 16000, 320), QV_VOICE_OK);
  EXPECT_EQ(run(wide, call), expected);
  ASSERT_EQ(QV_VOICE_InitImage(narrow_image.data(), 8000, 128), QV_VOICE_OK);
  run(narrow, Call(narrow, 10));
  ASSERT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
  ASSERT_EQ(init(image), QV_VOICE_OK);
  Outputs joint{Samples(call.far.size()), Samples(call.far.size())};
  std::srand(1);
  for (size_t at = 0; at < call.far.size(); at += 320)
    EXPECT_EQ(VOICE_Process(&call.far[at], &joint.played[at], &call.mic[at], &joint.sent[at], 0), QV_VOICE_OK);
  EXPECT_EQ(joint, expected);
}

// The echo canceller runs for exactly 1. Without it the transmit path works in place.
TEST_F(LifeCycle, echo_canceller_is_left_out_unless_its_switch_is_one) {
  const Call call(wide, 50);
  const auto sent_with = [&](int16_t enable) {
    image[10] = enable;
    EXPECT_EQ(init(image), QV_VOICE_OK);
    return run(wide, call).sent;
  };
  const Samples without = sent_with(0);
  EXPECT_EQ(sent_with(2), without);
  EXPECT_NE(sent_with(1), without);
  EXPECT_EQ(sent_with(-1), without);
  ASSERT_EQ(init(image), QV_VOICE_OK);
  Samples in_place = call.mic;
  std::srand(1);
  for (size_t at = 0; at < in_place.size(); at += 320)
    EXPECT_EQ(QV_VOICE_ProcessTx(&in_place[at], &call.far[at], &in_place[at], 0), QV_VOICE_OK);
  EXPECT_EQ(in_place, without);
}

} // namespace
