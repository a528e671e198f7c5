// SPDX-License-Identifier: BSD-3-Clause
#include "wire/key_buf.h"

key_buf key_printf(const char *format, ...) {
    key_buf key;
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(key.text.data(), key.text.size(), format, ap);
    va_end(ap);
    return key;
}
