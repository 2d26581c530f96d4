/// @file signal.h  Samples for calculation, and their powers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace qv::tool {

using Signal = std::vector<double>; ///< full scale is 1.0
using SignalView = std::span<const double>;
using SampleView = std::span<const int16_t>; ///< as recorded; an hour of it takes a quarter of a Signal's memory

Signal to_signal(SampleView samples);

/// Rounds and saturates, as the library does.
std::vector<int16_t> to_samples(SignalView signal);

double energy(SignalView signal);

/// Mean square; 0 of an empty signal.
double power(SignalView signal);

/// 10 log10; of a signal's power it is the level in dBov (0 dBov: a full-scale square wave, ITU-T G.100.1).
/// @return nothing unless the power is above 0
std::optional<double> to_db(double power);

double from_db(double db);      ///< power ratio
double gain_from_db(double db); ///< amplitude ratio

void scale(Signal &signal, double gain);

/// `count` samples from `begin` on, zeros where the signal has none; begin may be negative.
Signal excerpt(SignalView signal, std::ptrdiff_t begin, size_t count);
Signal excerpt(SampleView samples, std::ptrdiff_t begin, size_t count);

/// Value below which the share `quantile` of the values lies, linear between neighbours. values not empty.
double quantile(std::vector<double> values, double quantile);

inline double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

} // namespace qv::tool
