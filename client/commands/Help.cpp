// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Help.h"

#include "client/commands/NearWords.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

namespace meridal {

namespace {

constexpr std::size_t helpColumns = 80;
constexpr std::size_t nameColumns = 30; // before what each means

std::vector<std::string> namesOf(const std::set<CLI::Option*>& options)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : options) {
        names.push_back(option->get_name());
    }
    std::sort(names.begin(), names.end()); // the set is by address
    return names;
}

std::string joined(const std::vector<std::string>& words, const char* between)
{
    std::string all;
    for (const std::string& word : words) {
        all += (all.empty() ? "" : between) + word;
    }
    return all;
}

std::string wrapped(const std::string& text)
{
    std::istringstream words(text);
    std::string all;
    std::size_t column = 0;
    for (std::string word; words >> word;) {
        const bool isFull = column > 0 && column + 1 + word.size() > helpColumns - nameColumns;
        all += column == 0 ? "" : isFull ? "\n" : " ";
        column = (column == 0 || isFull ? 0 : column + 1) + word.size();
        all += word;
    }
    return all;
}

class HelpForPeople final : public CLI::Formatter {
public:
    HelpForPeople()
    {
        column_width(nameColumns);
        label("Positionals", "Arguments");
        label("SUBCOMMAND", "COMMAND");
    }

    /// "cpu|memory|disk" of what the library calls ":{cpu,memory,disk}", "N" of "N:INT in [1 - 1000000000]".
    std::string make_option_opts(const CLI::Option* option) const override
    {
        const std::string type = option->get_type_size() == 0 ? std::string() : option->get_type_name();
        const std::size_t colon = type.find(':');
        if (colon != 0) {
            return option->get_positional() || type.empty() ? "" : " " + type.substr(0, colon);
        }
        std::string choices = type.substr(1);
        std::erase_if(choices, [](char each) { return each == '{' || each == '}'; });
        std::replace(choices.begin(), choices.end(), ',', '|');
        return " " + choices;
    }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        const std::string what = option->get_description();
        std::vector<std::string> more;
        const auto add = [&more](const std::string& words, bool isTold) {
            if (isTold) {
                more.push_back(words);
            }
        };
        add(option->get_default_str(), !option->get_default_str().empty());
        add("or $" + option->get_envname(), !option->get_envname().empty());
        for (const std::string& needed : namesOf(option->get_needs())) {
            add("with " + needed, what.find(needed) == std::string::npos);
        }
        const auto excluded = namesOf(option->get_excludes());
        add("not with " + joined(excluded, ", "), !excluded.empty());
        return wrapped(what + (more.empty() ? "" : " (" + joined(more, "; ") + ")"));
    }

    std::string make_subcommand(const CLI::App* command) const override
    {
        std::ostringstream out;
        CLI::detail::format_help(out, command->get_name(), wrapped(command->get_description()), column_width_);
        return out.str();
    }
};

} // namespace

void arrangeHelp(CLI::App& app) { app.formatter(std::make_shared<HelpForPeople>()); }

std::string helpOf(const CLI::App& app)
{
    return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

std::string helpOf(const CLI::App& app, const std::string& command)
{
    const auto found = app.get_subcommands([&](const CLI::App* each) { return each->get_name() == command; });
    return found.empty()
        ? std::string()
        : app.get_formatter()->make_help(found.front(), app.get_name() + " " + command, CLI::AppFormatMode::Normal);
}

std::string unknownCommandComplaint(const CLI::App& app, const std::string& word)
{
    std::vector<std::string> commands;
    for (const CLI::App* command :
        app.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); })) {
        commands.push_back(command->get_name());
    }
    const std::string meant = wordMeant(word, commands);
    return app.get_name() + ": there is no command \"" + word + "\""
        + (meant.empty() ? "" : "; did you mean \"" + meant + "\"?") + "\n\"" + app.get_name()
        + " help\" lists all commands.\n";
}

std::string wordInsteadOfCommand(const CLI::App& app)
{
    const std::vector<std::string> unread = app.remaining();
    const auto word =
        std::find_if(unread.begin(), unread.end(), [](const std::string& each) { return !each.starts_with('-'); });
    return app.get_subcommands().empty() && word != unread.end() ? *word : std::string();
}

} // namespace meridal
