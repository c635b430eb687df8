// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace meridal {

/// A formula of lm-sensors' configuration that makes a figure out of the raw one: "@ * (1 + 34/51)". Numbers, @ for the
/// raw figure, + - * /, parentheses, ^ for exp and ` for ln, and the sign. Figures of other channels are not supported.
class SensorsExpression {
public:
    /// Absent when the text is no such formula, or is nested more than 32 deep.
    static std::optional<SensorsExpression> parse(std::string_view text);

    /// Absent where the result is not finite.
    std::optional<double> evaluate(double raw) const;

private:
    enum class Step : char { Number, Raw, Add, Subtract, Multiply, Divide, Negate, Exp, Ln };
    struct Instruction {
        Step step = Step::Number;
        double number = 0;
    };
    class Parser;
    std::vector<Instruction> program_; ///< for a stack machine
};

} // namespace meridal
