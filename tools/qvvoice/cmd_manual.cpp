// The verb `manual`, which help does not list: manual pages and shell completion, from the verbs themselves.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "para/presets.h"
#include "parameters.h"
#include "qvvoice/qvvoice.h"
#include "support/output_file.h"
#include "tune/plan.h"
#include "verbs.h"

namespace qv::tool {
namespace {

using Apps = std::vector<const CLI::App *>;

/// Subcommands that help lists, or groups of options, which have no name.
Apps parts_of(const CLI::App &app, bool groups) {
  return app.get_subcommands(
      [&](const CLI::App *part) { return part->get_name().empty() == groups && !part->get_group().empty(); });
}

std::vector<const CLI::Option *> options_of(const CLI::App &app) {
  std::vector<const CLI::Option *> options = app.get_options();
  for (const CLI::App *group : parts_of(app, true))
    std::ranges::copy_if(options_of(*group), std::back_inserter(options),
                         [&](const CLI::Option *option) { return option != group->get_help_ptr(); });
  return options;
}

/// Text that troff prints as it is.
std::string roff(const std::string &text) {
  std::string escaped;
  for (const char c : text) {
    if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n'))
      escaped += "\\&";
    switch (c) {
    case '\\':
      escaped += "\\e";
      break;
    case '-':
      escaped += "\\-";
      break;
    case ',':
      escaped += ",\\:";
      break; // a long list may break there
    default:
      escaped += c;
    }
  }
  return escaped;
}

/// "qvvoice para pack", with what joins the words.
std::string full_name(const CLI::App &app, const char *joint) {
  return app.get_parent() ? full_name(*app.get_parent(), joint) + joint + app.get_name() : app.get_name();
}

std::string option_text(const CLI::Option &option) {
  const std::string type = option.get_type_size() != 0 ? " " + option.get_type_name() : "";
  return fmt::format(".TP\n\\fB{}\\fR{}{}\n{}\n", roff(option.get_name(option.get_positional(), true)), roff(type),
                     option.get_required() ? " (required)" : "", roff(option.get_description()));
}

std::string manual_page(const CLI::App &app) {
  const std::string name = full_name(app, "-");
  std::string text = fmt::format(".TH {} 1 \"\" \"QV Voice {}\"\n.ad l\n.SH NAME\n{} \\- {}\n", name,
                                 QV_VOICE_Version(), roff(name), roff(app.get_description()));
  const Apps commands = parts_of(app, false);
  text += fmt::format(".SH SYNOPSIS\n\\fB{}\\fR {}[options]\n", roff(full_name(app, " ")),
                      commands.empty() ? "" : "command ");
  if (!commands.empty())
    text += ".SH COMMANDS\n";
  for (const CLI::App *command : commands)
    text += fmt::format(".TP\n\\fB{}\\fR\n{}; see \\fB{}\\fR(1)\n", roff(command->get_name()),
                        roff(command->get_description()), roff(full_name(*command, "-")));
  text += ".SH OPTIONS\n";
  for (const CLI::Option *option : options_of(app))
    text += option_text(*option);
  if (!app.get_footer().empty())
    text += fmt::format(".SH EXAMPLES\n.nf\n{}\n.fi\n", roff(app.get_footer()));
  return text + ".SH EXIT STATUS\n0: done. 1: a check found something wrong. 2: bad input or usage.\n";
}

/// Every option and subcommand that may follow.
std::string words_after(const CLI::App &app) {
  std::string words;
  for (const CLI::App *command : parts_of(app, false))
    words += command->get_name() + " ";
  for (const CLI::Option *option : options_of(app))
    for (const std::string &name : option->get_lnames())
      words += "--" + name + " ";
  return words;
}

void completion_cases(const CLI::App &app, std::string &text) {
  text += fmt::format("  '{}') echo '{}' ;;\n", full_name(app, " "), words_after(app));
  for (const CLI::App *command : parts_of(app, false))
    completion_cases(*command, text);
}

/// What may stand behind an option: the names that its check lists, or names that are built in and files.
std::string values_of(const CLI::Option &option) {
  const std::string type = option.get_type_name();
  if (option.check_lname("plan")) {
    std::string plans;
    for (const tune::BuiltIn &plan : tune::built_in())
      plans += fmt::format("{} ", plan.name);
    return plans;
  }
  if (type == parameters_type)
    return fmt::format("{} ", fmt::join(para::preset_names(), " "));
  const size_t list = type.find('{');
  if (list == type.npos)
    return "";
  std::string words = type.substr(list + 1, type.rfind('}') - list - 1) + " ";
  std::ranges::replace(words, ',', ' ');
  return words;
}

void value_cases(const CLI::App &app, std::string &text) {
  for (const CLI::Option *option : options_of(app))
    for (const std::string &name : option->get_lnames())
      if (const std::string values = values_of(*option); !values.empty())
        text += fmt::format("  '{} --{}') echo '{}' ;;\n", full_name(app, " "), name, values);
  for (const CLI::App *command : parts_of(app, false))
    value_cases(*command, text);
}

std::string completion(const CLI::App &app) {
  std::string cases, values;
  completion_cases(app, cases);
  value_cases(app, values);
  const std::string presets = fmt::format("{}", fmt::join(para::preset_names(), " "));
  return fmt::format(R"(# bash completion for qvvoice: commands, their options and the names these take, else files
_qvvoice_words() {{
  case $1 in
{}  *) return 1 ;;
  esac
}}
_qvvoice_values() {{
  case $1 in
{}  'qvvoice para show show' | 'qvvoice para check check' | 'qvvoice para plot plot' | 'qvvoice para diff '*) echo '{}' ;;
  esac
}}
_qvvoice() {{
  local verb=qvvoice words next i
  words=$(_qvvoice_words qvvoice)
  for ((i = 1; i < COMP_CWORD; ++i)); do
    next=$(_qvvoice_words "$verb ${{COMP_WORDS[i]}}") || break
    verb+=" ${{COMP_WORDS[i]}}" words=$next
  done
  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} values
  values=$(_qvvoice_values "$verb $before")
  if [[ $values && $word != -* ]]; then
    COMPREPLY=($(compgen -W "$values" -- "$word") $(compgen -f -- "$word"))
  else
    COMPREPLY=($(compgen -W "$words" -- "$word"))
  fi
}}
complete -o default -F _qvvoice qvvoice
)",
                     cases, values, presets);
}

void write_text(const std::string &path, const std::string &text) {
  OutputFile file(path);
  file.write(text);
  file.commit();
}

void write_pages(const CLI::App &app, const std::string &folder) {
  write_text(fmt::format("{}/{}.1", folder, full_name(app, "-")), manual_page(app));
  for (const CLI::App *command : parts_of(app, false))
    write_pages(*command, folder);
}

} // namespace

void add_manual(CLI::App &app) {
  const auto folder = std::make_shared<std::string>();
  CLI::App *verb = app.add_subcommand("manual", "Writes manual pages and shell completion")->group("");
  verb->add_option("-o,--out", *folder, "Folder of the results, made when missing")->type_name("DIR")->required();
  verb->callback([&app, folder] {
    std::filesystem::create_directories(*folder);
    write_pages(app, *folder);
    write_text(*folder + "/qvvoice.bash", completion(app));
  });
}

} // namespace qv::tool
