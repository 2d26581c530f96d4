// The adaptive filter frame by frame, each from the library's own state, against its formulas in double precision:
// weights, shares, the choice between the paths, the output, the leakage and the step.

#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/spectrum.h"
#include "signals.h"

namespace {

using namespace qv::test;

constexpr size_t n = 160, f = 2 * n, bins = n + 1, partitions = 4;

double dot(const Signal &a, const Signal &b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i)
    sum += double(a[i]) * b[i];
  return sum;
}

Signal operator-(Signal a, const Signal &b) {
  std::ranges::transform(a, b, a.begin(), std::minus());
  return a;
}

/// What a frame starts from.
struct Before {
  AecMdfState st;
  Signal background, foreground, step, error_spectrum, error_average, echo_average, far_power;
  explicit Before(const AecMdfState &s)
      : st(s), background(s.pfWBg, s.pfWBg + partitions * f), foreground(s.pfWFg, s.pfWFg + partitions * f),
        step(s.pfStep, s.pfStep + bins), error_spectrum(s.pfErrSpec, s.pfErrSpec + f),
        error_average(s.pfErrPsdAvg, s.pfErrPsdAvg + bins), echo_average(s.pfEchoPsdAvg, s.pfEchoPsdAvg + bins),
        far_power(s.pfFarPow, s.pfFarPow + bins) {}
};

Values shares(const Before &before) {
  Values share(partitions);
  double sum = 0, largest = 1;
  for (size_t j = 0; j < partitions; ++j) {
    const Signal w(&before.background[j * f], &before.background[j * f] + f);
    share[j] = before.st.swAdapted ? std::sqrt(1 + dot(w, w)) : std::exp(-2.4 * double(j) / partitions);
    largest = std::max(largest, share[j]);
  }
  for (double &s : share)
    sum += s += before.st.swAdapted ? largest / 10 : 0;
  for (double &s : share)
    s *= before.st.swAdapted ? 0.99 / (1 + sum) : 0.8 / sum;
  return share;
}

/// Step times error times the conjugate of the block before last, cut to N taps: the first partition in every frame,
/// the others in turn.
Signal adapted(const Before &before, const AecMdfState &st) {
  Signal weights = before.background;
  const Values share = shares(before);
  for (size_t j = 0; j < partitions; ++j) {
    float *w = &weights[j * f];
    const float *x = st.pfFarSpec + (j + 1) * f;
    for (size_t k = 0; k <= n && before.st.swSatHold == 0; ++k) {
      const bool real = k == 0 || k == n;
      const std::complex<double> gradient =
          share[j] * before.step[k] * bin(before.error_spectrum, k) * std::conj(bin({x, f}, k));
      w[real ? (k ? f - 1 : 0) : 2 * k - 1] += float(gradient.real());
      if (!real)
        w[2 * k] += float(gradient.imag());
    }
    if (j == 0 || size_t(st.swFrameCnt) % (partitions - 1) == j - 1) {
      Signal taps(f);
      VOICE_Ifft(w, taps.data(), f);
      std::fill_n(&taps[n], n, 0.f);
      VOICE_Fft(taps.data(), w, f);
    }
  }
  return weights;
}

Signal echo_estimate(const AecMdfState &st, const Signal &weights) {
  Signal spectrum(f), time(f);
  VOICE_SpectralMulAccum(st.pfFarSpec, weights.data(), spectrum.data(), f, partitions);
  VOICE_Ifft(spectrum.data(), time.data(), f);
  return {time.begin() + n, time.end()};
}

enum Choice { neither, refresh, reset, open };

/// The choice between the paths, open where rounding may decide; the averages that it was made from.
Choice choice(const Before &before, double foreground, double background, double paths, Values &averages) {
  const double gain = foreground - background, variance = foreground * paths;
  averages = {0.6 * before.st.fDavg1 + 0.4 * gain, 0.85 * before.st.fDavg2 + 0.15 * gain,
              0.36 * before.st.fDvar1 + 0.16 * variance, 0.7225 * before.st.fDvar2 + 0.0225 * variance};
  const auto over = [](double x, double bound) { return x * std::fabs(x) / bound; };
  const double better =
      std::max({over(gain, variance), over(averages[0], averages[2] / 2), over(averages[1], averages[3] / 4)});
  const double worse =
      -std::min({over(gain, variance), over(averages[0], averages[2]), over(averages[1], averages[3])}) / 4;
  const auto near_one = [](double x) { return x > 0.999 && x < 1.001; };
  return near_one(better) || near_one(worse) ? open : better > 1 ? refresh : worse > 1 ? reset : neither;
}

/// Leakage and steps by the energies of the frame.
void check_step(const Before &before, const AecMdfState &st, double far, double error, double echo,
                double correlation) {
  error = std::max(error, 100.0 * f);
  double covariance = 1, power = 1;
  for (size_t k = 0; k < bins; ++k) {
    const double e = st.pfErrPsd[k] - before.error_average[k], y = st.pfEchoPsd[k] - before.echo_average[k];
    covariance += e * y;
    power += y * y;
    const double keep = 1 - double(n) / 8000, weight = 0.35 / partitions;
    const double errors = keep * before.error_average[k] + (1 - keep) * st.pfErrPsd[k];
    const double echoes = keep * before.echo_average[k] + (1 - keep) * st.pfEchoPsd[k];
    EXPECT_NEAR(st.pfErrPsdAvg[k], errors, 1e-4 * errors + 1e-6);
    EXPECT_NEAR(st.pfEchoPsdAvg[k], echoes, 1e-4 * echoes + 1e-6);
    EXPECT_NEAR(st.pfFarPow[k] / (1 + (1 - weight) * before.far_power[k] + weight * st.pfFarPsd[k]), 1, 1e-4);
  }
  const double rate = std::min(2.0 * n / 8000 * echo, 0.5 * n / 8000 * error) / error;
  const double pyy = std::max((1 - rate) * before.st.fPyy + rate * std::sqrt(power), 1.0);
  const double pey = (1 - rate) * before.st.fPey + rate * covariance / std::sqrt(power);
  EXPECT_NEAR(st.fPyy / pyy, 1, 1e-4);
  EXPECT_NEAR(st.fLeak, std::clamp(pey / pyy, 0.005, 1.0), 1e-4);
  const bool trained = before.st.swAdapted || (before.st.fSumAdapt > partitions && st.fLeak > 0.03f && echo > 0);
  EXPECT_EQ(st.swAdapted, trained);
  const double training = far > 1000.0 * f ? 0.25 * std::min(far, error) / error : 0;
  EXPECT_NEAR(st.fSumAdapt, before.st.fSumAdapt + (trained ? 0 : training), 1e-4);
  const double share = std::min(
      std::max((1e-4 * far + 3 * st.fLeak * echo) / error, correlation * correlation / (1 + error * echo)), 0.5);
  for (size_t k = 0; k < bins; ++k) {
    const double e = st.pfErrPsd[k] + 1, own = std::min(st.fLeak * st.pfEchoPsd[k] / e, 0.5);
    const double step = (trained ? 0.7 * own + 0.3 * share : training) / (st.pfFarPow[k] + 10);
    EXPECT_NEAR(st.pfStep[k], step, 2e-4 * step + 1e-12) << "bin " << k << (trained ? ", trained" : "");
  }
}

TEST(AdaptiveFilter, every_frame_is_that_of_the_formulas) {
  Filter filter(all_layouts[1], partitions);
  AecMdfState &st = filter.st;
  constexpr size_t length = 400 * n;
  // Silence, an echo, double talk, another path, and clipping.
  Signal far = white(length, 3000.f, 5), near = white(length, 30.f, 6);
  std::fill_n(far.begin(), 5 * n, 0.f);
  Signal heard = echo_of(far, all_layouts[1]);
  const Signal moved = echo_of(far, all_layouts[1], 4), talk = white(length, 4000.f, 7);
  for (size_t i = 0; i < heard.size(); ++i) {
    heard[i] = (i < 250 * n ? heard[i] : moved[i]) + near[i] + (i / n / 10 % 15 == 14 ? talk[i] : 0);
    if (i / n % 60 == 59)
      heard[i] *= 20;
  }
  Samples mic = sampled(heard);
  const Samples ref = sampled(far);
  for (const auto &[frame, sample] : {std::pair{70, 32000}, {75, -32000}, {80, 31999}, {85, -31999}})
    mic[size_t(frame) * n + 77] = int16_t(sample);
  int32_t chosen[4] = {}, trained = 0, held = 0;
  for (size_t at = 0; at < mic.size() && !testing::Test::HasFailure(); at += n) {
    SCOPED_TRACE(at / n);
    const Before before(st);
    Samples out(n);
    EXPECT_EQ(AEC_MdfProcess(&mic[at], &ref[at], out.data(), &st), 0);
    const auto &[least, most] = std::minmax_element(&mic[at], &mic[at] + n);
    EXPECT_EQ(st.swSatHold, *most >= 32000 || *least <= -32000) << "clipping holds the next update off";
    held += before.st.swSatHold;
    const Signal weights = adapted(before, st), emphasised(st.pfNearIn, st.pfNearIn + n);
    const Signal front = echo_estimate(st, before.foreground), back = echo_estimate(st, weights);
    const Signal front_error = emphasised - front, back_error = emphasised - back, apart = front - back;
    Values averages;
    const Choice wanted =
        choice(before, dot(front_error, front_error), dot(back_error, back_error), 10 + dot(apart, apart), averages);
    ++chosen[wanted];
    trained += before.st.swAdapted;
    if (wanted == open)
      continue;
    const Values share = shares(before);
    for (size_t j = 0; j < partitions; ++j)
      EXPECT_NEAR(st.pfProp[j], share[j], 1e-4);
    const Signal now(st.pfWBg, st.pfWBg + partitions * f), shown(st.pfWFg, st.pfWFg + partitions * f);
    EXPECT_LT(dot(now, now) > 0 ? relative_error(wanted == reset ? before.foreground : weights, now) : 0, 1e-4);
    EXPECT_EQ(shown == (wanted == refresh ? now : before.foreground), true);
    const float kept[] = {st.fDavg1, st.fDavg2, st.fDvar1, st.fDvar2};
    for (size_t a = 0; a < 4; ++a)
      EXPECT_NEAR(kept[a], wanted == neither ? averages[a] : 0,
                  1e-3 * std::fabs(averages[a]) + (a < 2 ? 1e-4 * dot(front_error, front_error) : 0));
    float last = before.st.fMemOut;
    for (size_t i = 0; i < n; ++i) {
      const double rise = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / f);
      const double echo = wanted == refresh ? rise * back[i] + (1 - rise) * front[i] : front[i];
      last = float(emphasised[i] - echo + 0.9 * last);
      EXPECT_NEAR(out[i], std::clamp(last, -32768.f, 32767.f), 1);
    }
    const Signal error = wanted == reset ? front_error : back_error, echo = wanted == reset ? front : back;
    Signal padded(f), spectrum(f);
    std::ranges::copy(error, &padded[n]);
    VOICE_Fft(padded.data(), spectrum.data(), f);
    EXPECT_LT(dot(spectrum, spectrum) > 0 ? relative_error(spectrum, Signal(st.pfErrSpec, st.pfErrSpec + f)) : 0, 1e-3);
    const Signal reference(st.pfFarTime + n, st.pfFarTime + f);
    check_step(before, st, dot(reference, reference), dot(error, error), dot(echo, echo), dot(error, echo));
  }
  EXPECT_GT(chosen[neither], 50);
  EXPECT_GT(chosen[refresh], 20);
  EXPECT_GT(chosen[reset], 2);
  EXPECT_LT(chosen[open], 10);
  EXPECT_GT(trained, 100);
  EXPECT_GT(held, 5);
  EXPECT_LT(trained, 390);
}

} // namespace
