// SPDX-License-Identifier: BSD-3-Clause
#include "text_table.h"

#include <algorithm>

#include "printable.h"

void text_table::row(const std::vector<std::string> &cells) {
    std::vector<std::string> &r = rows_.emplace_back();
    r.reserve(cells.size());
    for (const std::string &c : cells) {
        r.push_back(printable(c));
    }
}

std::string text_table::render(int indent) const {
    std::vector<std::size_t> width(header_.size(), 0);
    auto measure = [&](const std::vector<std::string> &cells) {
        for (std::size_t i = 0; i < cells.size() && i < width.size(); ++i) {
            width[i] = std::max(width[i], cells[i].size());
        }
    };
    measure(header_);
    for (const auto &r : rows_) {
        measure(r);
    }
    std::string out;
    auto line = [&](const std::vector<std::string> &cells) {
        std::string text(static_cast<std::size_t>(indent), ' ');
        for (std::size_t i = 0; i < cells.size() && i < width.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size()) {
                text.append(width[i] - cells[i].size() + 2, ' ');
            }
        }
        while (!text.empty() && text.back() == ' ') {
            text.pop_back();
        }
        out += text + "\n";
    };
    line(header_);
    for (const auto &r : rows_) {
        line(r);
    }
    return out;
}
