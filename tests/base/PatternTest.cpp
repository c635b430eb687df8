// SPDX-License-Identifier: Apache-2.0
#include "base/Pattern.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <regex>
#include <string>

namespace meridal {
namespace {

bool isFound(std::string_view pattern, std::string_view text)
{
    const auto compiled = Pattern::of(pattern);
    EXPECT_TRUE(compiled) << pattern << ": " << (compiled ? "" : compiled.error().message);
    return compiled && compiled->isFoundIn(text);
}

TEST(Pattern, FindsWhatTheSignsMean)
{
    for (const auto& [pattern, text] : std::initializer_list<std::pair<const char*, const char*>>{{"", ""}, {"", "x"},
             {"nginx", "/usr/sbin/NGINX -g"}, {"^/usr", "/usr/bin"}, {"daemon$", "the daemon"}, {"^$", ""},
             {"a|b", "xb"}, {"(^|/)ssh[d-]?( |$)", "/usr/bin/ssh x"}, {"colou?r", "color"}, {"go+d", "goood"},
             {"x{2,3}$", "axx"}, {"^x{2,}$", "xxxxx"}, {"^(ab){2}c$", "ababc"}, {"[^a-y]", "aaz"}, {"[]x]", "]"},
             {"[a-]", "-"}, {"\\d{4}", "in 2024"}, {"^\\S+ \\w$", "one 2"}, {".", "\xff"}, {"ü", "Füße"},
             {"a{0}b", "b"}, {"(a|)+b", "b"}}) {
        EXPECT_TRUE(isFound(pattern, text)) << pattern << " in " << text;
    }
    for (const auto& [pattern, text] : std::initializer_list<std::pair<const char*, const char*>>{{"^b", "ab"},
             {"a$", "ab"}, {"^x{2,3}$", "xxxx"}, {"^x{2}$", "x"}, {"[^a-z]", "abc"}, {"a.c", "ac"}, {"\\D", "123"},
             {".", ""}, {"a^b", "ab"}, {"a+", "b"}, {"^(ab|cd)+$", "abc"}, {"\\.", "x"}}) {
        EXPECT_FALSE(isFound(pattern, text)) << pattern << " in " << text;
    }
}

TEST(Pattern, RefusesWhatIsNotOneAndWhatIsNotRegular)
{
    for (const char* const pattern : {"(", ")", "a)", "(a", "[a", "[z-a]", "*", "a**", "a{2", "a{3,2}", "a{65}", "\\",
             "\\1", "(a)\\1", "(?=a)", "(?:a)", "\\b", "[[:alpha:]]", "[\xC3\xA4]", "|*", "a{,2}"}) {
        EXPECT_FALSE(Pattern::of(pattern)) << pattern;
    }
}

TEST(Pattern, NothingHostileTakesTimeOrStack)
{
    const std::string as(100'000, 'a');
    for (const char* const pattern : {"(a+)+$b", "(a*)*b", "(a|aa)+b", "(.*)(.*)(.*)(.*)[^a]x", "((a?){20}){3}b"}) {
        EXPECT_FALSE(isFound(pattern, as)) << pattern;
    }
    std::string nested = "x";
    for (int depth = 0; depth < 12; ++depth) {
        nested = "(" + nested + "){64}";
    }
    EXPECT_FALSE(Pattern::of(nested)) << "64 to the power of 12 characters";
    nested.erase(nested.find('x'), 1);
    EXPECT_FALSE(Pattern::of(nested)) << "and as many of nothing";
    EXPECT_FALSE(Pattern::of(std::string(200, '(')));
    EXPECT_FALSE(Pattern::of(std::string(10'000, 'a')));
    EXPECT_FALSE(Pattern::of(std::string(65, 'a')));
    EXPECT_TRUE(isFound(std::string(64, 'a'), as));
}

/// Small enough that the library's own matcher answers in time.
RC_GTEST_PROP(Pattern, AgreesWithAnotherMatcher, ())
{
    const auto atom =
        rc::gen::elementOf(std::vector<std::string>{"a", "b", "[ab]", "[^a]", ".", "(ab|c)", "(a|b)", "\\w"});
    const auto sign = rc::gen::elementOf(std::vector<std::string>{"", "", "*", "+", "?", "{2}", "{1,2}", "{0,1}", "|"});
    std::string pattern = *rc::gen::elementOf(std::vector<std::string>{"", "^"});
    const int atoms = *rc::gen::inRange(1, 5);
    for (int i = 0; i < atoms; ++i) {
        pattern += *atom + *sign;
    }
    pattern += *rc::gen::elementOf(std::vector<std::string>{"", "$"});
    const auto text = *rc::gen::container<std::string>(rc::gen::elementOf(std::string("abc ")));
    RC_LOG() << pattern << " in " << text;
    const bool found = std::regex_search(text, std::regex(pattern, std::regex::ECMAScript));
    RC_ASSERT(isFound(pattern, text) == found);
}

} // namespace
} // namespace meridal
