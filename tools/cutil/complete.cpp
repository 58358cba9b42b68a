// What may follow on a command line, for the shell's completion: told by the same forms and options that read it.
#include "cutil.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <set>
#include <utility>

namespace cutil
{

namespace
{

std::vector<std::string> commandNames()
{
    std::vector<std::string> names;
    for (const Command* command : commands())
        names.emplace_back(command->name);
    return names;
}

struct Meaning {
    std::string_view word;
    std::vector<std::string> (*choices)();
};

constexpr Meaning meanings[] = {
    {"COMMAND", commandNames}, {"CODE|NAME", errorNames},
    {"REGION", regionNames},   {"TYPE", typeNames},
    {"LEVEL", levelNames},     {"WHEN", [] { return std::vector<std::string>{"auto", "always", "never"}; }},
    {"FILE", nullptr},         {"LIST", nullptr},
};

/// Prints those that begin like a word. A name that the shell would take apart is better typed by who knows it.
void offer(const auto& choices, std::string_view begun)
{
    constexpr auto isPlain = [](unsigned char c) { return isalnum(c) || strchr("._-/", c) != nullptr; };
    for (const std::string& choice : choices) {
        if (choice.starts_with(begun) && std::all_of(choice.begin(), choice.end(), isPlain))
            puts(choice.c_str());
    }
}

/// The same for what a word of a form stands for.
void offerMeaning(std::string_view word, std::string_view begun)
{
    const std::size_t start = word[0] == '[' ? 1 : 0;
    const std::string_view name = word.substr(start, word.find_first_of(".]") - start);
    for (const Meaning& meaning : meanings) {
        if (meaning.word == name)
            offer(meaning.choices != nullptr ? meaning.choices() : std::vector<std::string>{"/"},
                  meaning.choices != nullptr ? begun : "");
    }
    if (isLiteral(word))
        offer(std::array{std::string(word)}, begun);
}

/// Words of a command line behind a command's name, as far as they are complete.
struct Begun {
    std::vector<std::string_view> words; // without options
    const Option* wanting = nullptr;     // an option that the next word is the value of
};

Begun take(const std::vector<Option>& options, std::span<const std::string> words)
{
    Begun begun;
    for (const std::string& word : words) {
        const auto option = std::find_if(options.begin(), options.end(), [&](const Option& known) {
            return word == std::string("--") + known.name || word == std::string{'-', known.letter};
        });
        if (begun.wanting == nullptr && option != options.end())
            begun.wanting = option->value != nullptr ? &*option : nullptr;
        else if (std::exchange(begun.wanting, nullptr) == nullptr)
            begun.words.emplace_back(word);
    }
    return begun;
}

/// Whether the form's words begin with these.
bool agrees(const std::vector<std::string_view>& form, const std::vector<std::string_view>& begun)
{
    for (std::size_t i = 0; i < std::min(form.size(), begun.size()); ++i) {
        if (isLiteral(form[i]) && form[i] != begun[i])
            return false;
    }
    return true;
}

void completeFor(const Command& command, std::span<const std::string> words)
{
    const std::string& last = words.back();
    const std::vector<Option> options = optionsOf(command);
    const Begun begun = take(options, words.first(words.size() - 1));
    if (begun.wanting != nullptr)
        return offerMeaning(begun.wanting->value, last);

    std::set<std::string> offered{"--help"};
    std::set<std::string_view> meant;
    for (const Form& form : command.forms) {
        std::vector<std::string_view> expected;
        for (const std::string_view word : wordsOf(form)) {
            if (word.starts_with("--"))
                offered.emplace(word);
            else
                expected.push_back(word);
        }
        if (!agrees(expected, begun.words))
            continue;
        for (const Option& option : command.options) {
            if (std::string_view(form.options).find(option.letter) != std::string_view::npos)
                offered.insert(std::string("--") + option.name);
        }
        const std::size_t at = begun.words.size();
        if (at < expected.size())
            meant.insert(expected[at]);
        else if (!expected.empty() && expected.back().find("...") != std::string_view::npos)
            meant.insert(expected.back());
    }
    if (last.starts_with('-'))
        return offer(offered, last);
    for (const std::string_view word : meant)
        offerMeaning(word, last);
}

} // namespace

int complete(const Arguments& arguments)
{
    std::vector<std::string> words;
    for (uint32_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] != std::string_view("=")) // the shell takes "--option=value" apart
            words.emplace_back(arguments[i]);
    }
    if (arguments[arguments.size() - 1] == std::string_view("="))
        words.emplace_back();
    const Command* command = words.size() == 1 ? &tool : findCommand(words[0]);
    if (command != nullptr)
        completeFor(*command, std::span(words).subspan(command == &tool ? 0 : 1));
    return done;
}

} // namespace cutil
