/// @file verbs.h  One function per verb, which adds its subcommand. Its callback does the work.
///
/// Results go to standard output, progress and messages to standard error. A callback throws InputError for
/// bad input (status 2) and CLI::RuntimeError(1) after it has checked something and found it wanting.
#pragma once

#include <CLI/CLI.hpp>

namespace qv::tool {

// Each in cmd_<verb>.cpp.
void add_process(CLI::App &app);
void add_para(CLI::App &app);
void add_presets(CLI::App &app);
void add_measure(CLI::App &app);
void add_worker(CLI::App &app);
void add_compare(CLI::App &app);
void add_scene(CLI::App &app);
void add_diagnose(CLI::App &app);
void add_report(CLI::App &app);
void add_tune(CLI::App &app);
void add_tuner(CLI::App &app);
void add_manual(CLI::App &app);

} // namespace qv::tool
