// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/SensorsExpression.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace meridal {

namespace {

constexpr int deepest = 32;
constexpr std::size_t mostInstructions = 256;

bool isDecimal(char c) { return c >= '0' && c <= '9'; }

} // namespace

/// Recursive descent: sums of products of signed factors. Writes the program in the order of evaluation.
class SensorsExpression::Parser {
public:
    Parser(std::string_view text, std::vector<Instruction>& program) : rest_(text), program_(program) { }

    bool parseAll()
    {
        if (!parseSum(0)) {
            return false;
        }
        skipBlanks();
        return rest_.empty();
    }

private:
    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size())); }

    bool take(char c)
    {
        skipBlanks();
        if (!rest_.starts_with(c)) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    bool emit(Step step, double number = 0)
    {
        program_.push_back({.step = step, .number = number});
        return program_.size() <= mostInstructions;
    }

    bool parseSum(int depth)
    {
        if (depth > deepest || !parseProduct(depth)) {
            return false;
        }
        for (;;) {
            if (take('+')) {
                if (!parseProduct(depth) || !emit(Step::Add)) {
                    return false;
                }
            } else if (take('-')) {
                if (!parseProduct(depth) || !emit(Step::Subtract)) {
                    return false;
                }
            } else {
                return true;
            }
        }
    }

    bool parseProduct(int depth)
    {
        if (!parseFactor(depth)) {
            return false;
        }
        for (;;) {
            if (take('*')) {
                if (!parseFactor(depth) || !emit(Step::Multiply)) {
                    return false;
                }
            } else if (take('/')) {
                if (!parseFactor(depth) || !emit(Step::Divide)) {
                    return false;
                }
            } else {
                return true;
            }
        }
    }

    bool parseFactor(int depth)
    {
        if (depth > deepest) {
            return false;
        }
        if (take('-')) {
            return parseFactor(depth + 1) && emit(Step::Negate);
        }
        if (take('^')) {
            return parseFactor(depth + 1) && emit(Step::Exp);
        }
        if (take('`')) {
            return parseFactor(depth + 1) && emit(Step::Ln);
        }
        if (take('(')) {
            return parseSum(depth + 1) && take(')');
        }
        if (take('@')) {
            return emit(Step::Raw);
        }
        return parseNumber();
    }

    bool parseNumber()
    {
        skipBlanks();
        double number = 0;
        std::size_t digits = 0;
        std::size_t at = 0;
        for (; at < rest_.size() && isDecimal(rest_[at]); ++at, ++digits) {
            number = number * 10 + (rest_[at] - '0');
        }
        if (at < rest_.size() && rest_[at] == '.') {
            double place = 1;
            for (++at; at < rest_.size() && isDecimal(rest_[at]); ++at, ++digits) {
                place /= 10;
                number += place * (rest_[at] - '0');
            }
        }
        rest_.remove_prefix(at);
        return digits > 0 && emit(Step::Number, number);
    }

    std::string_view rest_;
    std::vector<Instruction>& program_;
};

std::optional<SensorsExpression> SensorsExpression::parse(std::string_view text)
{
    SensorsExpression expression;
    if (!Parser(text, expression.program_).parseAll()) {
        return std::nullopt;
    }
    return expression;
}

std::optional<double> SensorsExpression::evaluate(double raw) const
{
    std::vector<double> stack;
    const auto combine = [&stack](auto operation) {
        const double right = stack.back();
        stack.pop_back();
        stack.back() = operation(stack.back(), right);
    };
    for (const Instruction& instruction : program_) {
        switch (instruction.step) {
        case Step::Number:
            stack.push_back(instruction.number);
            break;
        case Step::Raw:
            stack.push_back(raw);
            break;
        case Step::Add:
            combine([](double a, double b) { return a + b; });
            break;
        case Step::Subtract:
            combine([](double a, double b) { return a - b; });
            break;
        case Step::Multiply:
            combine([](double a, double b) { return a * b; });
            break;
        case Step::Divide:
            combine([](double a, double b) { return b == 0 ? NAN : a / b; });
            break;
        case Step::Negate:
            stack.back() = -stack.back();
            break;
        case Step::Exp:
            stack.back() = std::exp(stack.back());
            break;
        case Step::Ln:
            stack.back() = stack.back() > 0 ? std::log(stack.back()) : NAN;
            break;
        }
    }
    return stack.size() == 1 && std::isfinite(stack.back()) ? std::optional(stack.back()) : std::nullopt;
}

} // namespace meridal
