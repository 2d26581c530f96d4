/// @file toml_values.h  Values of a TOML text as parameters, and their description in messages.
#pragma once

#include <toml++/toml.h>

#include <optional>
#include <string>

#include "para/words.h"

namespace qv::tool::para {

/// What a text has, for messages: "true, a boolean", "an array of 3".
std::string found(const toml::node &node);

/// What a field wants: "true or false", "a number of dB", "a number of samples, or \"20 ms\"".
std::string right_type(const Field &field);

/// The number for one element of a field: a boolean or an integer for a switch; a number, or for
/// samples a string such as "20 ms". Nothing when the type is wrong.
/// @param rate  Hz
std::optional<double> number(const Field &field, const toml::node &node, int32_t rate);

/// 0 .. 499 from the decimal digits of a key, else -1.
int word_number(const std::string &key);

/// Path of what reads a word: "tx.eq.coef", "rate".
std::string owner_of(int32_t word, int32_t rate);

} // namespace qv::tool::para
