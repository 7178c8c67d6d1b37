#include "platform/locale.h"

#include <clocale>

namespace zeph::platform {
namespace {

locale_t plain() {
  static const locale_t made = newlocale(LC_ALL_MASK, "C", nullptr);
  return made;
}

}  // namespace

PlainNumbers::PlainNumbers() : before_(uselocale(plain())) {}

PlainNumbers::~PlainNumbers() {
  uselocale(static_cast<locale_t>(before_));
}

}  // namespace zeph::platform
