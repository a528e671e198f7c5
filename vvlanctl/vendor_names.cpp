// SPDX-License-Identifier: BSD-3-Clause
#include "vendor_names.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

std::string prefix_of(const mac_addr &m) {
    char buf[7];
    std::snprintf(buf, sizeof buf, "%02X%02X%02X", m[0], m[1], m[2]);
    return buf;
}

// Six upper-case hexadecimal digits, as the registry writes an assignment.
std::optional<uint32_t> hex24(const char *p) {
    uint32_t v = 0;
    for (int i = 0; i < 6; ++i) {
        const char c = p[i];
        uint32_t d = 0;
        if (c >= '0' && c <= '9') {
            d = static_cast<uint32_t>(c - '0');
        } else if (c >= 'A' && c <= 'F') {
            d = static_cast<uint32_t>(c - 'A' + 10);
        } else {
            return std::nullopt;
        }
        v = v << 4 | d;
    }
    return v;
}

// One field of a CSV line from at, quotes and doubled quotes undone; at
// moves past the comma.
std::string csv_field(const std::string &line, std::size_t *at) {
    std::string out;
    std::size_t i = *at;
    if (i < line.size() && line[i] == '"') {
        for (++i; i < line.size(); ++i) {
            if (line[i] == '"') {
                if (i + 1 < line.size() && line[i + 1] == '"') {
                    out += '"';
                    ++i;
                } else {
                    ++i;
                    break;
                }
            } else {
                out += line[i];
            }
        }
    } else {
        while (i < line.size() && line[i] != ',') {
            out += line[i++];
        }
    }
    *at = i < line.size() ? i + 1 : i;
    return out;
}

} // namespace

vendor_names::vendor_names(const std::vector<mac_addr> &wanted) {
    if (wanted.empty()) {
        return;
    }
    std::vector<uint32_t> want;
    for (const mac_addr &m : wanted) {
        want.push_back(static_cast<uint32_t>(m[0]) << 16 | static_cast<uint32_t>(m[1]) << 8 | m[2]);
    }
    std::sort(want.begin(), want.end());
    const char *dir = std::getenv("VVLANCTL_IEEE_DATA");
    const std::string path =
        std::string(dir != nullptr && dir[0] != '\0' ? dir : IEEE_DATA_DIR) + "/oui.csv";
    // The registry is a few megabytes, read once per show: mapped, and only
    // each line's second field looked at, "Registry,Assignment,...".
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    struct stat st {};
    void *map = MAP_FAILED;
    if (fstat(fd, &st) == 0 && st.st_size > 0) {
        map = mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
    }
    close(fd);
    if (map == MAP_FAILED) {
        return;
    }
    const std::string_view text(static_cast<const char *>(map),
                                static_cast<std::size_t>(st.st_size));
    const char *const begin = text.data();
    const char *const stop = begin + text.size();
    for (const char *line = begin; line < stop;) {
        const char *end = static_cast<const char *>(std::memchr(line, '\n', stop - line));
        if (end == nullptr) {
            end = stop;
        }
        const char *comma = static_cast<const char *>(std::memchr(line, ',', end - line));
        const auto key = comma != nullptr && comma + 8 <= end && comma[7] == ',' ? hex24(comma + 1)
                                                                                 : std::nullopt;
        if (key && std::binary_search(want.begin(), want.end(), *key)) {
            std::string one(line, end);
            if (!one.empty() && one.back() == '\r') {
                one.pop_back();
            }
            std::size_t field = static_cast<std::size_t>(comma - line) + 8;
            names_[std::string(comma + 1, 6)] = csv_field(one, &field);
        }
        line = end + 1;
    }
    munmap(map, text.size());
}

std::optional<std::string> vendor_names::of(const mac_addr &m) const {
    const auto it = names_.find(prefix_of(m));
    if (it == names_.end()) {
        return std::nullopt;
    }
    return it->second;
}
