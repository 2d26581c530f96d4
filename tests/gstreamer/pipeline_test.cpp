// Whole pipelines: the tool's bytes, negotiation with converters, seeks, live sources.

#include "elements.h"
#include "files.h"

namespace qv::gst {
namespace {

struct Unref {
  void operator()(gpointer object) const { gst_object_unref(object); }
};

/// Runs until the end or an error. @return the error, or nothing
std::string run(GstElement *pipeline, GstClockTime patience = 60 * GST_SECOND) {
  const std::unique_ptr<GstBus, Unref> bus(gst_element_get_bus(pipeline));
  GstMessage *message =
      gst_bus_timed_pop_filtered(bus.get(), patience, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  if (!message)
    return "stands still";
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
    return text_of(message);
  gst_message_unref(message);
  return "";
}

class Pipeline {
public:
  explicit Pipeline(const std::string &line) {
    GError *error = nullptr;
    pipeline_ = gst_parse_launch(line.c_str(), &error);
    EXPECT_EQ(error, nullptr) << error->message;
  }
  ~Pipeline() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
  }
  GstElement *get() const { return pipeline_; }
  std::string play() {
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    return run(pipeline_);
  }
  std::unique_ptr<GstElement, Unref> at(const char *name) const {
    return std::unique_ptr<GstElement, Unref>(gst_bin_get_by_name(GST_BIN(pipeline_), name));
  }

private:
  GstElement *pipeline_;
};

class Pipelines : public tool::InFolder {
protected:
  std::string raw(const char *name, const Samples &samples) const {
    return put(name, std::string(reinterpret_cast<const char *>(samples.data()), 2 * samples.size()));
  }
  static std::string source(const std::string &path, int rate, int block) {
    return "filesrc location=" + path + " blocksize=" + std::to_string(block) +
           " ! rawaudioparse format=pcm pcm-format=s16le num-channels=1 sample-rate=" + std::to_string(rate) + " ! ";
  }
};

// Neither may depend on which path is faster: the reference's is slowed down once. With blocks of 100 samples the first
// buffer is less than a frame: in a pipeline that is not yet playing the probe's sink takes that one alone. Reference
// longer and shorter than the microphone.
TEST_F(Pipelines, files_give_the_tools_bytes) {
  for (const test::Layout &layout : test::all_layouts) {
    const test::Call call(layout, 700); // more than the probe may be ahead
    Samples mic = call.mic, ref = call.far;
    (layout.frame_len % 128 ? mic : ref).resize(mic.size() - 5001);
    const std::string rate = std::to_string(layout.rate), ms = std::to_string(1000 * layout.frame_len / layout.rate);
    const std::string preset = "full-duplex-" + std::to_string(layout.rate / 1000) + "k-" + ms + "ms";
    raw("mic.raw", mic);
    raw("ref.raw", ref);
    const bool own = layout.rate == 8000; // the others run what both take without being told
    const tool::CommandResult made = tool::run_command(
        folder, "process --raw s16le --raw-rate " + rate + " --mic mic.raw --ref ref.raw --raw-out --out " +
                    "tool.raw --compensate --frame-ms " + ms + (own ? " --para " + preset : ""));
    ASSERT_EQ(made.status, 0) << made.err;
    std::string expected = tool::bytes_of(at("tool.raw"));
    expected.resize(2 * mic.size()); // the tool goes on to the end of the longer one
    for (const auto &[ref_block, slow, mic_block] :
         {std::tuple{200, "", 4096}, {8192, "identity sleep-time=2000 ! ", 200}}) {
      Pipeline pipeline(source(at("ref.raw"), layout.rate, ref_block) + slow + "qvvoiceprobe ! fakesink " +
                        source(at("mic.raw"), layout.rate, mic_block) + "qvvoice frame-ms=" + ms +
                        (own ? " preset=" + preset : "") + " ! filesink location=" + at("gst.raw"));
      EXPECT_EQ(pipeline.play(), "");
      EXPECT_TRUE(tool::bytes_of(at("gst.raw")) == expected) << layout << " blocks " << ref_block << ", " << mic_block;
    }
  }
}

TEST_F(Pipelines, converters_negotiate_what_the_parameters_are_for) {
  // The two paths meet in the probe alone, where any other rate of the microphone's would be an error.
  Pipeline pipeline("audiotestsrc num-buffers=50 ! audio/x-raw,rate=48000,channels=2,format=F32LE ! audioconvert ! "
                    "audioresample ! audio/x-raw,rate=8000 ! qvvoiceprobe ! audioconvert ! audioresample ! "
                    "audio/x-raw,rate=48000 ! fakesink audiotestsrc num-buffers=50 wave=pink-noise ! "
                    "audio/x-raw,rate=44100,channels=2 ! audioconvert ! audioresample ! qvvoice "
                    "preset=balanced-8k-20ms ! fakesink");
  EXPECT_EQ(pipeline.play(), "");
}

TEST_F(Pipelines, a_seek_goes_on_from_there) {
  const test::Call call(test::all_layouts[3], 200); // 4 s
  raw("mic.raw", call.mic);
  raw("ref.raw", call.far);
  Pipeline pipeline(source(at("ref.raw"), 16000, 4096) + "qvvoiceprobe ! fakesink " +
                    source(at("mic.raw"), 16000, 4096) + "qvvoice name=voice ! fakesink name=out signal-handoffs=true");
  gst_element_set_state(pipeline.get(), GST_STATE_PAUSED);
  ASSERT_EQ(gst_element_get_state(pipeline.get(), nullptr, nullptr, 20 * GST_SECOND), GST_STATE_CHANGE_SUCCESS);
  std::pair<uint64_t, uint64_t> counts{GST_CLOCK_TIME_NONE, 0}; // first timestamp, samples
  g_signal_connect(pipeline.at("out").get(), "handoff",
                   G_CALLBACK(+[](GstElement *, GstBuffer *buffer, GstPad *, std::pair<uint64_t, uint64_t> *seen) {
                     seen->first = std::min(seen->first, GST_BUFFER_PTS(buffer));
                     seen->second += gst_buffer_get_size(buffer) / 2;
                   }),
                   &counts);
  ASSERT_TRUE(gst_element_seek_simple(pipeline.get(), GST_FORMAT_TIME,
                                      GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), 3 * GST_SECOND));
  EXPECT_EQ(pipeline.play(), "");
  EXPECT_EQ(counts.first, 3 * GST_SECOND);
  EXPECT_EQ(counts.second, 16000u);
}

// Nobody waits for anybody; the reference is there when it is needed.
TEST_F(Pipelines, live_sources_find_their_reference) {
  Pipeline pipeline(
      "audiotestsrc is-live=true wave=pink-noise samplesperbuffer=320 ! audio/x-raw,rate=16000 ! "
      "qvvoiceprobe ! fakesink sync=true audiotestsrc is-live=true num-buffers=100 samplesperbuffer=320 ! "
      "audio/x-raw,rate=16000 ! qvvoice name=voice ! fakesink name=out sync=true");
  gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
  const auto voice = pipeline.at("voice");
  uint64_t known = 0, missing = 0;
  for (int look = 0; look < 200 && known < 16000; ++look) {
    g_usleep(50000);
    known = stat_of(voice.get(), "reference-known");
    missing = stat_of(voice.get(), "reference-missing");
  }
  EXPECT_GE(known, 16000u);
  EXPECT_LT(missing, known / 2);
}

TEST_F(Pipelines, wrong_settings_keep_it_from_starting) {
  for (const auto &[settings, reason] : {std::pair{"preset=none", "there is no preset \"none\""},
                                         {"parameters=none.toml", "there is neither a file nor a preset"},
                                         {"frame-ms=17", "frame-ms: found 17"}}) {
    Pipeline pipeline(std::string("audiotestsrc ! qvvoice ") + settings + " ! fakesink");
    EXPECT_NE(pipeline.play().find(reason), std::string::npos) << settings;
  }
}

} // namespace
} // namespace qv::gst
