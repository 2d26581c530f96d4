#include <CLI/CLI.hpp>

int main(int argc, char **argv) {
  CLI::App app{"Runs, shows and measures QV Voice on recordings"};
  CLI11_PARSE(app, argc, argv);
}
