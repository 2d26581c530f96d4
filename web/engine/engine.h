/// @file engine.h  What the page asks for: one function per question, JSON in and out.
///
/// Arrays cross as {"type", "pointer", "length"}: a place in the module's memory, in a request for as long as the
/// request lasts, in a reply until the next request. `type` is the name of JavaScript's typed array.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <nlohmann/json.hpp>

#include "config/fields.h"

namespace qv::web {

using Json = nlohmann::ordered_json;

/// The array at a place. @param place  as above; its type is not looked at
template <class Value> std::span<const Value> array_at(const Json &place) {
  return {reinterpret_cast<const Value *>(place.at("pointer").get<uintptr_t>()), place.at("length").get<size_t>()};
}

template <class Value> Json place_of(const char *type, std::span<const Value> values) {
  return {{"type", type}, {"pointer", reinterpret_cast<uintptr_t>(values.data())}, {"length", values.size()}};
}

/// What a request cannot have; the page shows the message.
inline Json refused(std::string message) { return {{"error", std::move(message)}}; }

/// The 500 words at `request.words`.
config::Image image_in(const Json &request);

/// A question, and the function that answers it.
struct Verb {
  std::string_view name;
  Json (*answer)(const Json &request);
};

std::span<const Verb> parameter_verbs(); ///< parameters.cpp
std::span<const Verb> call_verbs();      ///< call.cpp

} // namespace qv::web
