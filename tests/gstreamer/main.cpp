#include <gst/gst.h>
#include <gtest/gtest.h>

int main(int count, char **arguments) {
  gst_init(&count, &arguments);
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
