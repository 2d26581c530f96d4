// Work shared out among processes that may die.

#include <csignal>

#include "process/files.h"
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

} // namespace
} // namespace qv::tool
