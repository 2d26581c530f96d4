#include "signal/spectrum.h"

#include <algorithm>
#include <new>

namespace qv::tool {

Transform::Transform(size_t size)
    : size_(size), forward_(kiss_fftr_alloc(int(size), 0, nullptr, nullptr)),
      inverse_(kiss_fftr_alloc(int(size), 1, nullptr, nullptr)) {
  if (!forward_ || !inverse_)
    throw std::bad_alloc();
}

Transform::~Transform() {
  kiss_fftr_free(forward_);
  kiss_fftr_free(inverse_);
}

Spectrum Transform::forward(SignalView signal) const {
  std::vector<float> time(size_);
  std::ranges::copy(signal, time.begin());
  Spectrum spectrum(size_ / 2 + 1);
  kiss_fftr(forward_, time.data(), reinterpret_cast<kiss_fft_cpx *>(spectrum.data()));
  return spectrum;
}

Signal Transform::inverse(const Spectrum &spectrum) const {
  std::vector<float> time(size_);
  kiss_fftri(inverse_, reinterpret_cast<const kiss_fft_cpx *>(spectrum.data()), time.data());
  Signal signal(time.begin(), time.end());
  scale(signal, 1.0 / double(size_));
  return signal;
}

} // namespace qv::tool
