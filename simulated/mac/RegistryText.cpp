// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/RegistryText.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <utility>

namespace meridal::test {

namespace {

/// Reads a value as the tool prints it. Numbers are unsigned there, whatever they stand for.
class ValueReader {
public:
    explicit ValueReader(std::string_view text) : rest_(text) { }

    std::optional<Value> read()
    {
        switch (rest_.empty() ? '\0' : rest_.front()) {
        case '"':
            return readString();
        case '<':
            return readData();
        case '{':
            return readDictionary();
        case '(':
            return readList(')');
        case '[':
            return readList(']');
        default:
            return readWord();
        }
    }

private:
    bool take(char character)
    {
        const bool isNext = !rest_.empty() && rest_.front() == character;
        rest_.remove_prefix(isNext ? 1 : 0);
        return isNext;
    }

    std::string_view takeUntil(char end)
    {
        const std::string_view taken = rest_.substr(0, rest_.find(end));
        rest_.remove_prefix(std::min(rest_.size(), taken.size() + 1));
        return taken;
    }

    std::string readString()
    {
        take('"');
        return std::string(takeUntil('"'));
    }

    Value readData()
    {
        take('<');
        const std::string_view digits = takeUntil('>');
        std::vector<std::uint8_t> bytes(digits.size() / 2);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
        }
        return Value::binary(std::move(bytes));
    }

    Value readDictionary()
    {
        Value entries = Value::object();
        take('{');
        while (!rest_.empty() && !take('}')) {
            const std::string key = readString();
            take('=');
            if (auto value = read()) {
                entries[key] = std::move(*value);
            }
            take(',');
        }
        return entries;
    }

    Value readList(char end)
    {
        Value items = Value::array();
        rest_.remove_prefix(1);
        while (!rest_.empty() && !take(end)) {
            if (auto value = read()) {
                items.push_back(std::move(*value));
            }
            take(',');
        }
        return items;
    }

    std::optional<Value> readWord()
    {
        const std::string_view word = rest_.substr(0, rest_.find_first_of(",)}]"));
        rest_.remove_prefix(word.size());
        std::uint64_t number = 0;
        if (word == "Yes" || word == "No") {
            return word == "Yes";
        }
        const bool isNumber = std::from_chars(word.data(), word.data() + word.size(), number).ec == std::errc();
        return isNumber ? std::optional<Value>(static_cast<std::int64_t>(number)) : std::nullopt;
    }

    std::string_view rest_;
};

/// "Name@0  <class IOObject:IOService:Name, id 0x100000123, ...>".
std::shared_ptr<RegistryNode> nodeOf(std::string_view line)
{
    auto node = std::make_shared<RegistryNode>();
    const auto bracket = line.find("  <class ");
    node->name = line.substr(0, std::min(line.find('@'), bracket));
    if (bracket == std::string_view::npos) {
        return node;
    }
    std::string_view facts = line.substr(bracket + 9);
    std::string_view chain = facts.substr(0, facts.find_first_of(",>"));
    while (!chain.empty()) {
        const auto length = std::min(chain.find(':'), chain.size());
        node->classes.emplace_back(chain.substr(0, length));
        chain.remove_prefix(std::min(chain.size(), length + 1));
    }
    if (const auto id = facts.find("id 0x"); id != std::string_view::npos) {
        std::from_chars(facts.data() + id + 5, facts.data() + facts.size(), node->identifier, 16);
    }
    return node;
}

} // namespace

bool RegistryNode::isA(std::string_view className) const
{
    return std::find(classes.begin(), classes.end(), className) != classes.end();
}

std::vector<std::shared_ptr<RegistryNode>> parseRegistry(std::string_view text)
{
    std::vector<std::shared_ptr<RegistryNode>> roots;
    std::vector<std::pair<std::size_t, std::shared_ptr<RegistryNode>>> above; // with the columns they stand in
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (const auto column = line.find("+-o "); column != std::string_view::npos) {
            auto node = nodeOf(line.substr(column + 4));
            while (!above.empty() && above.back().first >= column) {
                above.pop_back();
            }
            node->parent = above.empty() ? nullptr : above.back().second.get();
            (above.empty() ? roots : above.back().second->children).push_back(node);
            above.emplace_back(column, std::move(node));
            continue;
        }
        const auto start = line.find_first_not_of(" |");
        const auto equals = line.find("\" = ");
        if (!above.empty() && start != std::string_view::npos && line[start] == '"'
            && equals != std::string_view::npos) {
            if (auto value = ValueReader(line.substr(equals + 4)).read()) {
                above.back().second->properties[std::string(line.substr(start + 1, equals - start - 1))] = *value;
            }
        }
    }
    return roots;
}

} // namespace meridal::test
