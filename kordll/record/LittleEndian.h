// LittleEndian: numbers in the byte order of the store's own files beside a
// record file (the rollback journal, the map of sub-tables), the low byte
// first, whatever the machine's own order.

#ifndef KORDLL_RECORD_LITTLEENDIAN_H_
#define KORDLL_RECORD_LITTLEENDIAN_H_

#include <cstdint>
#include <vector>

namespace kordll {

class LittleEndian {
 public:
  // The low `bytes` bytes of value at out.
  static void Put(unsigned char* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
  }
  // The same, added at the end of out.
  static void Append(std::vector<unsigned char>* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<unsigned char>(value >> (8 * i)));
  }
  static uint64_t Get(const unsigned char* in, int bytes) {
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | in[i];
    return value;
  }
  // A signed 32-bit number as Put wrote it in 4 bytes.
  static int32_t GetInt32(const unsigned char* in) {
    return static_cast<int32_t>(static_cast<uint32_t>(Get(in, 4)));
  }
};

}  // namespace kordll

#endif  // KORDLL_RECORD_LITTLEENDIAN_H_
