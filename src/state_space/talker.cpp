#include "state_space/talker.h"

namespace qv::state_space {

namespace {

constexpr float freedom = 0.6f;  // as in background.cpp
constexpr float model_error = 4; // factor by which the residual echo may exceed what is expected
constexpr float most_per_band = 5;
constexpr float unsure_share = 0.2f; // weight of evidence that a changed path could bring as well, until somebody talks
constexpr float most_gathered = 60;  // the test closes after at most 20 frames without evidence

float log_likelihood(float ratio, float half_freedom) {
  if (!(ratio > 1))
    return 0;
  return std::min(most_per_band, half_freedom * (ratio - 1 - float(std::log(double(ratio)))));
}

} // namespace

TalkerEvidence evidence_of(const Bands &bands, const float *error, const float *residual, const float *echo,
                           const float *background) {
  TalkerEvidence sum;
  for (int32_t b = 0; b < bands.count; ++b) {
    const float half_freedom = freedom * float(bands.width(b));
    const float explained = model_error * residual[b] + background[b];
    sum.residual += log_likelihood(error[b] / explained, half_freedom);
    sum.whole_echo += log_likelihood(error[b] / (explained + model_error * echo[b]), half_freedom);
  }
  return sum;
}

void gather(const TalkerEvidence &evidence, bool echo_like, bool denied, TalkerTest &test) {
  const float sure = std::max(evidence.whole_echo, unsure_share * evidence.residual);
  const float brought = test.talking ? (echo_like ? 0 : evidence.residual) : sure;
  test.gathered = denied ? 0 : std::clamp(test.gathered + brought - test.bias, 0.f, most_gathered);
  test.talking = test.gathered > (test.talking ? 0 : test.threshold);
  test.lasting = test.talking ? std::min(test.lasting + 1, 1 << 30) : 0;
}

} // namespace qv::state_space
