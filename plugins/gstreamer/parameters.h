/// @file parameters.h  The parameters of a qvvoice element, from its properties.
#pragma once

#include <optional>
#include <string>

#include "config/fields.h"

namespace qv::gst {

/// The last of the properties preset and parameters that was set.
class Parameters {
public:
  /// A preset's name. @return what is wrong, or nothing; then nothing has changed
  std::string set_preset(const std::string &name);
  /// A file, packed or as text, or the text itself: more than one line. @return as above
  std::string set_parameters(const std::string &file_or_text);

  int rate() const { return words_ ? (*words_)[config::rate_word] : 0; } ///< Hz; 0 while none is set
  /// Those that are set, else the default preset of the layout.
  config::Image words(int rate, int frame_length) const;

private:
  template <class Load> std::string take(const Load &load);

  std::optional<config::Image> words_;
};

} // namespace qv::gst
