// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace meridal {

class Session;

/// What to do as it was typed. Returns the exit status.
using Command = std::function<int(Session& session)>;

/// How one command is typed: its options, in the order of its help, and where their values go. Those must last until the
/// command has run, and hold what an option is when it is not given.
class Syntax {
public:
    explicit Syntax(CLI::App& command) : command_(command) { }

    /// From the help: it is for programs.
    void hide();
    /// Below the help.
    void examples(const std::string& text);
    void flag(const std::string& name, bool& isGiven, const std::string& what);
    /// From 1 on; 0 stands for what is not given, and any other value is shown as the usual one.
    void count(const std::string& names, std::size_t& count, const std::string& what);
    /// From 0 on; the value that it has is shown as the usual one.
    void countOrNone(const std::string& name, std::size_t& count, std::size_t most, const std::string& what);
    void days(double& days, const std::string& what);
    void seconds(const std::string& name, double& seconds, double least, double most, const std::string& what);
    void text(const std::string& name, std::string& text, const std::string& type, const std::string& what);
    /// One of some words.
    void choice(
        const std::string& name, std::string& word, const std::vector<std::string>& words, const std::string& what);

    // Without a name of its own on the command line
    /// As many as there are, or none.
    void anyWords(const std::string& name, std::vector<std::string>& words, const std::string& what);
    void anyNumbers(const std::string& name, std::vector<std::int64_t>& numbers, const std::string& what);
    /// The same, each one of some.
    void anyChoices(const std::string& name, std::vector<std::string>& words, const std::vector<std::string>& choices,
        const std::string& what);

    // The same, and required
    void word(const std::string& name, std::string& word, const std::string& what);
    void numbers(const std::string& name, std::vector<std::int64_t>& numbers, const std::string& what);
    /// `complaint` says what is wrong with a word, or nothing.
    void words(const std::string& name, std::vector<std::string>& words, const std::string& what,
        std::string (*complaint)(const std::string& word));
    /// A time of one word or several.
    void moment(const std::string& name, std::vector<std::string>& words, const std::string& what);
    /// As many as there are, whatever they look like; of "call" only.
    void rawWords(const std::string& name, std::vector<std::string>& words, const std::string& what);

    void exclude(const std::string& name, const std::string& other);
    void need(const std::string& name, const std::string& other);

private:
    CLI::App& command_;
};

/// All commands, of which parsing puts the one that was typed into `chosen`.
class Grammar {
public:
    Grammar(CLI::App& app, Command& chosen) : app_(app), chosen_(chosen) { }

    Syntax add(const std::string& name, const std::string& description, Command command);
    /// With options of its own, for its syntax to fill in and for `run` to go by.
    template <typename Options>
    std::pair<Syntax, Options&> add(
        const std::string& name, const std::string& description, int (*run)(Session&, const Options&))
    {
        const auto options = std::make_shared<Options>();
        const Command command = [run, options](Session& session) { return run(session, *options); };
        return {add(name, description, command), *options};
    }

private:
    CLI::App& app_;
    Command& chosen_;
};

} // namespace meridal
