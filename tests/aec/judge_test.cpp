// The double-talk judgement and the suppressor's frame against their formulas in double precision, frame after frame.

#include <numbers>

#include "qvvoice/config/para.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "signals.h"

namespace {

using namespace qv::test;

constexpr size_t n = 160, f = 2 * n, bins = n + 1, bands = 24;

/// Judges as the library does, from the first frame on.
struct SlowJudge {
  AecDtdPara para;
  Values average = Values(bands), presence = average;
  double threshold = para.fPresenceThrInit;
  int32_t below = 0, state = 2;

  int32_t frame(const Signal &near, const Signal &far, const Signal &passed) {
    int32_t counted = 0;
    for (size_t b = 0; b < bands; ++b) {
      const size_t g = b / 4;
      const double across = b < 2 || b >= bands - 2 ? double(passed[b])
                                                    : 0.1 * passed[b - 2] + 0.2 * passed[b - 1] + 0.4 * passed[b] +
                                                          0.2 * passed[b + 1] + 0.1 * passed[b + 2];
      average[b] = 0.92 * average[b] + 0.08 * across;
      const double ratio = passed[b] / (near[b] + 0.0001), low = para.afResLow[g], high = para.afResHigh[g];
      const double ratio_low = para.afRatioLow[g], ratio_high = para.afRatioHigh[g];
      const auto ramp = [](double x, double from, double to) { return x > to ? 1 : (x - from) / (to - from + 0.001); };
      presence[b] =
          std::min({ramp(passed[b], low, high), ramp(average[b], low, high), ramp(ratio, ratio_low, ratio_high)});
      if (across < para.afResDropFactor[g] * average[b] || passed[b] < low || average[b] < low || ratio < ratio_low)
        presence[b] = 0;
      if (para.aswBandJudgeEnable[g] != 1 || far[b] <= para.afBandFarMin[g])
        presence[b] = 1;
      const bool within = int32_t(b) >= para.swCountBandStart && int32_t(b) < para.swCountBandEnd;
      counted += within && ratio * presence[b] > threshold && near[b] > 100;
    }
    if (counted >= para.swCountMin) {
      below = 0;
      threshold = std::max(threshold - para.fPresenceThrStep, double(para.fPresenceThrMin));
      return state = 2;
    }
    if (++below <= para.swSingleTalkHang)
      return below;
    threshold = std::min(threshold + para.fPresenceThrStep, double(para.fPresenceThrMax));
    return state = 1;
  }
};

TEST(DoubleTalk, every_judgement_is_that_of_the_formulas) {
  start(all_layouts[1]);
  AecDtdPara para = g_stVoicePara.stAec.stDtd;
  for (int32_t g = 0; g < 6; ++g) {
    para.aswBandJudgeEnable[g] = g != 3;
    para.afBandFarMin[g] = float(1 + g);
    para.afResLow[g] = float(11 + 3 * g);
    para.afResHigh[g] = float(42 + 40 * g);
    para.afRatioLow[g] = 0.0033f * float(g);
    para.afRatioHigh[g] = 0.0334f + 0.1f * float(g);
    para.afResDropFactor[g] = 0.4f * float(g);
  }
  int32_t kinds[3] = {}, partial = 0;
  // Bands counted; one more than there are; an empty range, with and without a need to count.
  for (const auto &[first, end, least] :
       {std::array{3, 18, 4}, {-5, 1000, 6}, {-5, 1000, 25}, {-5, 1, 1}, {30, -1, 1}, {8, 8, 0}}) {
    para.swCountBandStart = first;
    para.swCountBandEnd = end;
    para.swCountMin = least;
    AecDtdState st;
    AEC_DtdInit(&para, &st);
    std::ranges::fill(st.afRatio, 1.f); // behind the bands convincing, but out of range
    EXPECT_EQ(std::ranges::count(std::span(st.aswBandFarActive, bands), 2), bands);
    SlowJudge slow{para};
    for (uint32_t frame = 0; frame < 600; ++frame) {
      // Powers from 1e-2 to 1e5, the residual's up to the microphone's; less of it in every second stretch.
      const uint32_t seed = 7919 * 4 * frame; // band 0 differs as well
      Signal near = noise_values(seed, bands, 8.f), far = noise_values(seed + 1, bands, 8.f), passed;
      Signal error = noise_values(seed + 2, bands, 2.f), gain = noise_values(seed + 3, bands, 0.5f);
      Signal presence(bands + 8, 1.f);
      for (size_t b = 0; b < bands; ++b) {
        near[b] = (frame + b) % 6 == 0 ? 100 : std::exp(near[b] + 4); // 100 does not count yet
        far[b] = std::exp(far[b]);
        error[b] = near[b] * std::exp(error[b] - (frame / 15 % 2 ? 5.f : 2.f));
        gain[b] += 0.5f;
        passed.push_back(error[b] * gain[b]);
      }
      const int32_t wanted = slow.frame(near, far, passed);
      near.resize(bands + 8, 1e5f);
      EXPECT_EQ(
          AEC_DtdProcessStDtJudge(near.data(), far.data(), error.data(), gain.data(), presence.data(), bands, &st),
          wanted);
      ASSERT_EQ(st.swTalkState, slow.state) << "frame " << frame;
      ASSERT_NEAR(st.fPresenceThr, slow.threshold, 1e-5) << "frame " << frame;
      for (size_t b = 0; b < bands; ++b) {
        ASSERT_EQ(error[b], passed[b]);
        ASSERT_NEAR(st.afResTimeSm[b] / slow.average[b], 1, 1e-4) << "frame " << frame << ", band " << b;
        ASSERT_NEAR(presence[b], slow.presence[b], 1e-3) << "frame " << frame << ", band " << b;
        partial += presence[b] > 0.1f && presence[b] < 0.9f;
      }
      ++kinds[slow.state == 2 ? 0 : slow.below == para.swSingleTalkHang + 1 ? 1 : 2];
    }
  }
  EXPECT_GT(std::ranges::min(kinds), 10) << "double talk, its end, single talk going on";
  EXPECT_GT(partial, 300);
}

/// Spectrum of the last two frames under a Hann window, and what is averaged of it.
struct SlowSpectrum {
  Samples last = Samples(n, 0);
  Signal spectrum = Signal(f), powers = Signal(bins), bands_now = Signal(bands);
  Values psd = Values(bins);
  std::vector<std::complex<double>> cross = std::vector<std::complex<double>>(bins);

  void frame(const Samples &now) {
    for (size_t i = 0; i < f; ++i)
      spectrum[i] =
          float((0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / f)) * (i < n ? last[i] : now[i - n]));
    VOICE_Fft(spectrum.data(), spectrum.data(), f);
    for (size_t k = 0; k < bins; ++k) {
      powers[k] = float(std::norm(bin(spectrum, k)));
      psd[k] = 0.9 * psd[k] + 0.1 * std::norm(bin(spectrum, k));
    }
    filterbank_compute_bank(powers.data(), bands_now.data());
    last = now;
  }
  double coherence(const SlowSpectrum &near, size_t k) {
    cross[k] = 0.9 * cross[k] + 0.1 * bin(spectrum, k) * std::conj(bin(near.spectrum, k));
    return std::norm(cross[k]) / (psd[k] * near.psd[k] + 1e-10);
  }
};

// Both suppressors' frames: what is measured, which gain the error's spectrum gets, and the overlap-add.
TEST(Suppressor, every_frame_is_that_of_the_formulas) {
  for (const bool ser : {false, true}) {
    Suppressor suppressor(all_layouts[1], !ser, ser, 1, {1, 1, 2, 1, 1, 1});
    AecNlpState &st = suppressor.st;
    AecDtdState dtd;
    AecDtdPara judged = g_stVoicePara.stAec.stDtd;
    judged.afBandFarThr[0] = judged.afBandFarThr[2] = judged.afBandFarThr[5] =
        1e9f; // bands without echo, up to the last
    AEC_DtdInit(&judged, &dtd);
    SlowSpectrum near, far, error, echo;
    Signal anr(bins), tail(n);
    int32_t passed = 0, muted = 0, shaped = 0, idle_bands = 0;
    for (uint32_t frame = 0; frame < 150; ++frame) {
      SCOPED_TRACE(frame);
      const bool talks = frame / 20 % 3 == 1;
      const Samples ref = noise_samples(3 * frame, n, frame / 10 % 5 == 4 ? 20 : 8000),
                    talk = noise_samples(3 * frame + 1, n, talks ? 6000 : 3);
      Samples mic(n), linear(n), echoes(n);
      for (size_t i = 0; i < n; ++i) {
        mic[i] = int16_t(ref[i] / 4 + talk[i]);
        linear[i] = int16_t(ref[i] / 60 + talk[i]);
        echoes[i] = int16_t(mic[i] - linear[i]);
      }
      for (size_t k = 0; k < bins; ++k)
        anr[k] = 0.3f + 0.1f * float((k * 7 + frame) % 8);
      near.frame(mic);
      far.frame(ref);
      error.frame(linear);
      echo.frame(echoes);
      dtd.swTalkState = frame / 10 % 5 == 4 ? 0 : 2;
      st.swDelayMute = frame % 50 == 30;
      AecDtdState judge = dtd;
      AEC_NlpProcess(mic.data(), ref.data(), linear.data(), &dtd, &st, anr.data(), 0.1f);

      for (size_t k = 0; k < bins; ++k) {
        EXPECT_NEAR(st.pfNearPsd[k], near.psd[k], 1e-3 * near.psd[k] + 1e-6);
        EXPECT_NEAR(st.pfFarPsd[k], far.psd[k], 1e-3 * far.psd[k] + 1e-6);
        EXPECT_NEAR(st.pfErrPsd[k], error.psd[k], 1e-3 * error.psd[k] + 1e-6);
        EXPECT_NEAR(st.pfCohFarNear[k], far.coherence(near, k), 2e-3);
        EXPECT_NEAR(st.pfCohErrNear[k], error.coherence(near, k), 2e-3);
      }
      EXPECT_LT(relative_error(near.bands_now, std::span(st.pfNearBand, bands)), 1e-4);
      EXPECT_LT(relative_error(far.bands_now, std::span(st.pfFarBand, bands)), 1e-4);
      EXPECT_LT(relative_error(echo.bands_now, std::span(st.pfEchoBand, bands)), 1e-4);

      Values gain(bins, 1.0);
      if (judge.swTalkState != 0) {
        const Signal band_gain(st.stSer.pfGain2, st.stSer.pfGain2 + bands);
        Signal mean(bands), presence(bands), spread(n), residual = error.bands_now;
        AEC_DtdProcessBandPassJudge(st.pfFarBand, bands, &judge);
        if (!ser)
          filterbank_compute_bank(st.stCoh.pfHnl, mean.data());
        AEC_DtdProcessStDtJudge(st.pfNearBand, st.pfFarBand, residual.data(), (ser ? band_gain : mean).data(),
                                presence.data(), bands, &judge);
        for (size_t b = 0; b < bands; ++b) {
          presence[b] *= ser ? band_gain[b] : 1;
          if (judge.aswBandFarActive[b] != 0)
            continue;
          ++idle_bands;
          EXPECT_TRUE(!ser || band_gain[b] == 1.f);
          for (size_t k = 0; k < n - 2 && !ser; ++k)
            EXPECT_TRUE(g_aswBandTable[k] != int32_t(b) || st.stCoh.pfHnl[k] == 1.f) << k;
        }
        filterbank_compute_psd(presence.data(), spread.data());
        const bool mutes = judge.swTalkState == 1 || st.swDelayMute == 1;
        for (size_t k = 0; k < bins; ++k)
          gain[k] = mutes || k == n ? 0 : spread[k] * (ser ? 1.f : st.stCoh.pfHnl[k]);
        muted += mutes;
        shaped += !mutes;
      } else {
        ++passed;
      }
      EXPECT_EQ(dtd.swTalkState, judge.swTalkState);
      for (size_t k = 0; k < n; ++k)
        gain[k] *= anr[k];
      Signal expected(f);
      for (size_t i = 0; i < f; ++i)
        expected[i] = float(gain[(i + 1) / 2] * error.spectrum[i]);
      const std::span<float> weighted(st.pfErrSpec, f);
      if (std::ranges::count(gain, 0.0) == bins)
        EXPECT_EQ(std::ranges::count(weighted, 0.f), f);
      else
        EXPECT_LT(relative_error(expected, weighted), 1e-4);
      VOICE_Ifft(expected.data(), expected.data(), f);
      for (size_t i = 0; i < n; ++i)
        EXPECT_NEAR(linear[i], tail[i] + expected[i], 2) << i;
      tail.assign(expected.begin() + n, expected.end());
      if (testing::Test::HasFailure())
        return;
    }
    EXPECT_GT(std::min({passed, muted, shaped}), 5) << passed << " " << muted << " " << shaped;
    EXPECT_GT(idle_bands, 0);
  }
}

// Clicks of six units, the same in all signals: their powers' product is near the 1e-10 that is added to it.
TEST(Suppressor, signals_next_to_silence_are_not_coherent) {
  Suppressor suppressor(all_layouts[1], false, false);
  AecNlpState &st = suppressor.st;
  AecDtdState dtd;
  AEC_DtdInit(&g_stVoicePara.stAec.stDtd, &dtd);
  Samples click(n, 0), out;
  click[n / 2] = 6;
  out = click;
  SlowSpectrum near, far;
  near.frame(click);
  far.frame(click);
  AEC_NlpProcess(click.data(), click.data(), out.data(), &dtd, &st, Signal(bins, 1.f).data(), 0.1f);
  for (size_t k = 0; k < bins; ++k)
    EXPECT_NEAR(st.pfCohFarNear[k], far.coherence(near, k), 1e-4) << k;
  EXPECT_GT(st.pfCohFarNear[40], 0.05f);
  EXPECT_LT(st.pfCohFarNear[40], 0.7f);
}

} // namespace
