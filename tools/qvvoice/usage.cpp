#include "usage.h"

#include <fmt/format.h>

#include "para/keys.h"

namespace qv::tool {
namespace {

/// Subcommands and options of a verb, those of its groups too.
void add_words(const CLI::App &app, std::vector<std::string> &words) {
  for (const CLI::Option *option : app.get_options())
    for (const std::string &name : option->get_lnames())
      words.push_back("--" + name);
  for (const CLI::App *part : app.get_subcommands([](const CLI::App *) { return true; }))
    if (part->get_name().empty())
      add_words(*part, words);
    else
      words.push_back(part->get_name());
}

/// For the first word that no verb has taken.
std::string meant_word(const CLI::App &app) {
  const CLI::App *verb = &app;
  while (!verb->get_subcommands().empty())
    verb = verb->get_subcommands().front();
  std::vector<std::string> words;
  add_words(*verb, words);
  for (const std::string &word : app.remaining(true)) {
    std::vector<std::string> alike;
    std::ranges::copy_if(words, std::back_inserter(alike),
                         [&](const std::string &known) { return known.starts_with('-') == word.starts_with('-'); });
    if (const std::string meant = para::nearest(word, alike); !meant.empty())
      return meant;
  }
  return "";
}

/// For "--preset: VALUE not in {A,B,C}", as CLI11 words it.
std::string meant_value(const std::string &message) {
  constexpr std::string_view label = ": ", middle = " not in {";
  const size_t list = message.find(middle), begin = message.find(label);
  if (list == message.npos || begin > list)
    return "";
  const size_t value = begin + label.size(), choices = list + middle.size();
  return para::nearest(message.substr(value, list - value),
                       CLI::detail::split(message.substr(choices, message.rfind('}') - choices), ','));
}

} // namespace

std::string usage_message(const CLI::App &app, const CLI::ParseError &error) {
  const std::string message = error.what();
  const bool value = dynamic_cast<const CLI::ValidationError *>(&error) != nullptr;
  return fmt::format("{}{} (--help shows the options)", message,
                     para::did_you_mean(value ? meant_value(message) : meant_word(app)));
}

} // namespace qv::tool
