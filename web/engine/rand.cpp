// The C library's generator as it is on the devices: the published outputs have its comfort noise. The C library for
// WebAssembly has another one.

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

/// Additive feedback, x[n] = x[n - 3] + x[n - 31] modulo 2^32, as of srand(1). The Unix function random(3); D. E. Knuth, The
/// Art of Computer Programming, volume 2, section 3.2.2.
class Generator {
public:
  Generator() {
    int64_t word = 1;
    for (uint32_t &value : values_) {
      value = uint32_t(word);
      word = 16807 * word % 2147483647;
    }
    for (int i = 0; i < 310; ++i)
      next();
  }

  uint32_t next() {
    uint32_t &oldest = values_[at_];
    oldest += values_[(at_ + values_.size() - 3) % values_.size()];
    at_ = (at_ + 1) % values_.size();
    return oldest >> 1;
  }

private:
  std::array<uint32_t, 31> values_;
  size_t at_ = 3; ///< the oldest; the newest stands before it
};

} // namespace

extern "C" int rand() {
  static Generator generator;
  return int(generator.next());
}
