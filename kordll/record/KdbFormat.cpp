#include "kordll/record/KdbFormat.h"

#include <climits>
#include <cstring>
#include <string_view>

#include "kordll/platform/CRuntime.h"

namespace kordll {

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

int KdbFormat::ScanInts(const char* text, size_t size, int* values, int count) {
  size_t i = 0;
  auto at = [&](size_t k) -> char { return k < size ? text[k] : '\0'; };
  if (at(i) != '[') return 0;
  ++i;
  for (int n = 0; n < count; ++n) {
    if (n > 0) {
      if (at(i) != ':') return n;
      ++i;
    }
    while (IsBlank(at(i))) ++i;
    bool negative = false;
    if (at(i) == '+' || at(i) == '-') {
      negative = at(i) == '-';
      ++i;
    }
    if (at(i) < '0' || at(i) > '9') return n;
    long long v = 0;
    while (at(i) >= '0' && at(i) <= '9') {
      if (v < 10000000000LL) v = v * 10 + (at(i) - '0');
      ++i;
    }
    if (negative) v = -v;
    if (v > INT_MAX) v = INT_MAX;
    if (v < INT_MIN) v = INT_MIN;
    values[n] = static_cast<int>(v);
  }
  return count;
}

std::string KdbFormat::FreeSlot(int size) {
  std::string slot(size, '\0');
  std::memcpy(slot.data(), "[-1:-1:-1:-1]", 13);
  slot[size - 1] = '\n';
  return slot;
}

std::string KdbFormat::FormatInts(const int* values, int count) {
  std::string out = "[";
  for (int n = 0; n < count; ++n) {
    if (n > 0) out += ':';
    out += std::to_string(values[n]);
  }
  out += ']';
  return out;
}

int64_t KdbFormat::SlotSize(const std::vector<int>& lengths) {
  int64_t sum = 0;
  for (int l : lengths) sum += l;
  return sum + static_cast<int64_t>(lengths.size()) + 28;
}

int64_t KdbFormat::SubTableHeaderSize(int slots, int fields) {
  return kSubTableLineSize + (static_cast<int64_t>(slots) + 2) +
         (6 * static_cast<int64_t>(fields) + 1);
}

std::vector<int> KdbFormat::ParseLengths(const char* text, size_t size) {
  std::vector<int> out;
  size_t end = 0;
  while (end < size && text[end] != '\0') ++end;
  size_t i = 0;
  while (i < end) {
    while (i < end && (text[i] == ',' || text[i] == '[' || text[i] == ']')) ++i;
    if (i >= end) break;
    size_t j = i;
    while (j < end && text[j] != ',' && text[j] != '[' && text[j] != ']') ++j;
    out.push_back(_atoi(std::string_view(text + i, j - i)));
    i = j;
  }
  return out;
}

bool KdbFormat::IsSafeName(std::u16string_view name) {
  if (name.empty() || name == u"." || name == u"..") return false;
  for (char16_t c : name) {
    if (c == u'/' || c < 0x20 || c == 0x7F) return false;
  }
  return true;
}

}  // namespace kordll
