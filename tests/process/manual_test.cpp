// The manual pages and the completion that the tool writes.

#include "process/files.h"

namespace qv::tool {
namespace {

class Manual : public InFolder {
protected:
  Manual() { EXPECT_EQ(run_command(folder, "manual --out .").status, 0); }
};

TEST_F(Manual, has_a_page_per_verb_with_every_option) {
  const std::string help = run_command(folder, "measure --help").out, page = bytes_of(at("qvvoice-measure.1"));
  for (const char *option : {"--against", "--columns", "--mic", "--frame-ms", "-j"}) {
    EXPECT_NE(help.find(option), std::string::npos) << option;
    std::string escaped;
    for (const char c : std::string(option))
      escaped += c == '-' ? "\\-" : std::string(1, c);
    EXPECT_NE(page.find(escaped), std::string::npos) << option;
  }
  EXPECT_TRUE(fs::exists(at("qvvoice-para-pack.1")));
  EXPECT_FALSE(fs::exists(at("qvvoice-manual.1")));
}

TEST_F(Manual, completes_verbs_and_options) {
  const auto complete = [&](const std::string &words, int index) {
    put("complete.sh", "source ./qvvoice.bash\nCOMP_WORDS=(" + words + ")\nCOMP_CWORD=" + std::to_string(index) +
                           "\n_qvvoice\necho \"${COMPREPLY[@]}\" >answer\n");
    EXPECT_EQ(std::system(("cd " + folder.string() + " && bash complete.sh").c_str()), 0);
    return bytes_of(at("answer"));
  };
  EXPECT_EQ(complete("qvvoice pr", 1), "process presets\n");
  EXPECT_EQ(complete("qvvoice para pa", 2), "pack\n");
  EXPECT_EQ(complete("qvvoice para pack x.toml --f", 4), "--force\n");
  EXPECT_EQ(complete("qvvoice report calls --aga", 3), "--against --against-delay --against-para\n");
}

} // namespace
} // namespace qv::tool
