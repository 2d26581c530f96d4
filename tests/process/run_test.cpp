// Whole recordings give the very samples that an application gets frame by frame.
#include "call/run.h"

#include <algorithm>

#include "call/trace_table.h"
#include "images.h"

namespace qv::tool {
namespace {

using test::all_layouts;
using test::Layout;

constexpr int32_t frames = 60;
constexpr size_t ragged = 37; // samples missing in the last frame

Setup setup_for(const Layout &layout, const config::Image &image) {
  return {image, "test", layout.rate, layout.frame_len};
}

/// The call with the end of the last frame silent, and what the library makes of it.
struct Expected {
  explicit Expected(const Layout &layout) : call(layout, frames) {
    length = call.mic.size() - ragged;
    std::fill(call.mic.begin() + long(length) - 100, call.mic.end(), 0);
    std::fill(call.far.begin() + long(length), call.far.end(), 0);
    EXPECT_EQ(QV_VOICE_InitImage(test::busy_image(layout.rate).data(), layout.rate, layout.frame_len), QV_VOICE_OK);
    out = test::run(layout, call);
    last.size = sizeof last;
    QV_VOICE_GetTrace(&last);
    QV_VOICE_Destory();
    out.played.resize(length);
    out.sent.resize(length);
    far = {call.far.begin(), call.far.begin() + long(length)};
    mic = {call.mic.begin(), call.mic.begin() + long(length) - 100};
  }
  test::Call call;
  size_t length;
  Samples far, mic; // of different lengths
  test::Outputs out;
  QvVoiceTrace last{};
};

TEST(Run, equals_the_frame_calls) {
  for (const Layout &layout : all_layouts) {
    const Expected expected(layout);
    const tool::Setup setup = setup_for(layout, test::busy_image(layout.rate));
    size_t calls = 0;
    const tool::Run both = run_both(setup, expected.far, expected.mic, {.progress = [&](size_t, size_t) { ++calls; }});
    EXPECT_EQ(both.played, expected.out.played) << layout;
    EXPECT_EQ(both.sent, expected.out.sent) << layout;
    EXPECT_EQ(calls, size_t(frames));
    ASSERT_EQ(both.trace.size(), size_t(frames));
    ASSERT_EQ(both.frame_seconds.size(), size_t(frames));
    EXPECT_EQ(both.trace.back().leakage, expected.last.leakage);
    EXPECT_EQ(both.trace.back().tx_frame, uint32_t(frames));

    EXPECT_EQ(run_rx(setup, expected.far).played, expected.out.played) << layout;
    const tool::Run tx = run_tx(setup, expected.mic, both.played);
    EXPECT_TRUE(tx.played.empty());
    EXPECT_TRUE(std::equal(tx.sent.begin(), tx.sent.end() - layout.frame_len, expected.out.sent.begin())) << layout;
  }
}

// What is compensated is the latency that the library states: a click stands where it was, the last sample of a
// recording included.
TEST(Run, compensation_leaves_a_click_in_its_place) {
  const RunOptions compensated{.compensate = true, .progress = {}};
  for (const Layout &layout : all_layouts) {
    config::Image image = test::busy_image(layout.rate);
    image[120] = image[140] = image[440] = 0; // gain control and comfort noise
    const tool::Setup setup = setup_for(layout, image);
    for (const size_t place : {size_t(1000), size_t(1234), size_t(3999)}) {
      Samples click(4000), silence(10);
      click[place] = 20000;
      const tool::Run tx = run_tx(setup, click, silence, compensated);
      const tool::Run rx = run_rx(setup, click, compensated);
      for (const Samples *out : {&tx.sent, &rx.played}) {
        ASSERT_EQ(out->size(), click.size());
        EXPECT_EQ(size_t(std::max_element(out->begin(), out->end()) - out->begin()), place) << layout;
      }
      EXPECT_GE(tx.latency.tx, layout.frame_len + EQ_MAX_HALF_TAPS - 1);
    }
  }
}

// Every field of the record is a column: their sizes fill it but for its size field.
TEST(TraceTable, shows_the_whole_record) {
  size_t bytes = sizeof(QvVoiceTrace::size), columns = 1;
  for_each_field({}, [&](const char *, auto value) {
    bytes += sizeof value;
    ++columns;
  });
  EXPECT_EQ(bytes, sizeof(QvVoiceTrace));

  std::vector<QvVoiceTrace> trace(2);
  trace[1].tx_frame = 2;
  trace[1].comfort_noise = 7;
  const std::string csv = trace_csv(trace, 0.016);
  const size_t second = csv.find("\n0.016,2,");
  ASSERT_NE(second, std::string::npos) << csv;
  EXPECT_EQ(csv.substr(csv.size() - 3), ",7\n");
  EXPECT_EQ(size_t(std::count(csv.begin() + long(second), csv.end(), ',')), columns - 1);
}

} // namespace
} // namespace qv::tool
