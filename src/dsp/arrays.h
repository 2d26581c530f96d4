/// @file arrays.h  The arrays that a state record owns: listed once, taken and returned from the list.
///
/// A module lists its arrays in a function object `owned(state, visit)` that calls
/// `visit(pointer, count)` for each of them.
#pragma once

#include <cstdint>

#include "qvvoice/dsp/memory.h"

namespace qv {

/// Takes every array, zero-filled; one that could not be had is null.
/// @return whether all could be had
template <class State, class Owned> bool take(State &state, Owned owned) {
  bool all = true;
  owned(state, [&all]<class Element>(Element *&pointer, int32_t count) {
    pointer = static_cast<Element *>(VOICE_Alloc(count * int32_t(sizeof(Element))));
    all &= pointer != nullptr;
  });
  return all;
}

/// Returns every array and leaves null pointers; null pointers are skipped.
template <class State, class Owned> void give_back(State &state, Owned owned) {
  owned(state, []<class Element>(Element *&pointer, int32_t) {
    VOICE_Free(pointer);
    pointer = nullptr;
  });
}

} // namespace qv
