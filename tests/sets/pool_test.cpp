// Other processes: work shared out among them that may die, and programs that may hang.

#include <csignal>

#include "process/files.h"
#include "support/child.h"
#include "support/output_file.h"
#include "support/worker_pool.h"

namespace qv::tool {
namespace {

class Pool : public InFolder {};

// An order is a word: what its process does.
TEST_F(Pool, one_that_dies_costs_its_own_order_and_is_named_by_its_signal) {
  const std::vector<std::string> orders = {"echo", "throw", "die", "echo", "die once", "exit", "long", "echo"};
  const OutputFile open_here(at("result")); // whose unfinished file a dying child must leave alone
  const auto before = paths();
  WorkerPool pool(2, [&](std::string_view order) -> std::string {
    if (order == "throw")
      throw InputError("mic.wav: is broken");
    if (order == "exit")
      _exit(7);
    if (order == "die" || (order == "die once" && !fs::exists(at("tried")))) {
      if (order == "die once")
        put("tried", "");
      std::raise(order == "die" ? SIGSEGV : SIGKILL);
    }
    return order == "long" ? std::string(3'000'000, 'x') : std::string(order);
  });
  std::vector<Reply> replies(orders.size());
  size_t reports = 0;
  for (int again = 0; again < 2; ++again)
    pool.run(
        orders.size(), [&](size_t i) { return orders[i]; },
        [&](size_t i, const Reply &reply) {
          replies[i] = reply;
          ++reports;
        });
  EXPECT_EQ(reports, 2 * orders.size());
  for (const size_t i : {0, 3, 4, 7})
    EXPECT_TRUE(replies[i].fine && replies[i].text == orders[i]) << i << replies[i].text;
  EXPECT_EQ(replies[6].text.size(), 3'000'000u);
  EXPECT_FALSE(replies[1].fine || replies[2].fine || replies[5].fine);
  EXPECT_EQ(replies[1].text, "mic.wav: is broken");
  EXPECT_NE(replies[2].text.find("signal 11"), std::string::npos) << replies[2].text;
  EXPECT_NE(replies[5].text.find("status 7"), std::string::npos) << replies[5].text;
  for (const fs::path &path : before)
    EXPECT_TRUE(fs::exists(path)) << path;
  EXPECT_FALSE(before.empty());
}

TEST(Child, ends_and_is_ended) {
  using namespace std::chrono_literals;
  const auto sh = [](const std::string &line, std::optional<std::chrono::milliseconds> limit = {}) {
    return run_child({"sh", "-c", line}, limit);
  };
  const ChildResult both = sh("head -c 300000 /dev/zero | tr '\\0' x; echo no >&2; exit 3", 60s);
  EXPECT_EQ(both.output, std::string(300'000, 'x'));
  EXPECT_EQ(both.messages, "no\n");
  EXPECT_EQ(both.status, 3);
  EXPECT_EQ(sh("kill -9 $$").status, 128 + SIGKILL);
  EXPECT_EQ(sh("exec >&- 2>&-; sleep 0.1; exit 4").status, 4) << "it has closed its outputs, and is waited for";
  const auto error_of = [&](const std::string &line) {
    try {
      sh(line, 100ms);
    } catch (const std::system_error &error) {
      return error.code();
    }
    return std::error_code();
  };
  for (const char *hanging : {"exec sleep 60", "exec sleep 60 >&- 2>&-", "sleep 3 & exit 0"})
    EXPECT_EQ(error_of(hanging), std::errc::timed_out) << hanging;
  EXPECT_THROW(run_child({"no-such-program"}), std::system_error);
}

} // namespace
} // namespace qv::tool
