// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/Panel.h"

#include <string>
#include <vector>

namespace meridal {

/// A list that the daemon tells in pages, asked for again and again: a question a page.
class PagedList {
public:
    struct Traits {
        std::string name; ///< of the first question; those that follow have a number behind it
        std::string method;
        std::string list;          ///< the entry of an answer that has the rows
        std::string entry = "key"; ///< of the last row, what `after` of the next page takes
        Value parameters = Value::object();
        double interval = 0; ///< s between an answer and the next question; 0: once
    };

    explicit PagedList(Traits traits) : traits_(std::move(traits)) { }

    void addQuestions(std::vector<PanelQuestion>& questions) const;
    /// Whether the answer was to one of its questions.
    bool take(const PanelAnswer& answer);

    /// Whether the first page has come.
    bool isKnown() const { return isKnown_; }
    /// The rows of all pages.
    Value rows() const;
    /// The latest answer to the first page; null while there is none.
    const Value& firstAnswer() const { return firstAnswer_; }
    /// Why there is none, printable; empty while all is well.
    const std::string& complaint() const { return complaint_; }

private:
    struct Page {
        Value after; ///< null of the first
        Value rows = Value::array();
    };

    std::string nameOf(std::size_t page) const;

    const Traits traits_;
    std::vector<Page> pages_ = std::vector<Page>(1);
    Value firstAnswer_;
    bool isKnown_ = false;
    std::string complaint_;
};

} // namespace meridal
