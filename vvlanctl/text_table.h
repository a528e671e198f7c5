// SPDX-License-Identifier: BSD-3-Clause
// Aligned columns for vvlanctl's human output: a header row and rows of
// cells, each column as wide as its widest cell, two blanks between columns.
#pragma once

#include <string>
#include <vector>

class text_table {
  public:
    explicit text_table(std::vector<std::string> header) : header_(std::move(header)) {}
    // Cells hold what the server holds: each is made printable here.
    void row(const std::vector<std::string> &cells);
    bool empty() const { return rows_.empty(); }
    // Every line indented by indent blanks, trailing blanks trimmed.
    std::string render(int indent = 2) const;

  private:
    std::vector<std::string> header_;
    std::vector<std::vector<std::string>> rows_;
};
