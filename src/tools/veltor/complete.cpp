// Goes through the words as the parser will, and offers what its description has for the place.
#include "complete.h"

#include "escape.h"
#include "front_options.h"
#include "names.h"
#include "secrets.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <veltor/cfg_admin.h>

namespace veltor::tool {

namespace {

using Options = std::vector<const CLI::Option*>;

/// What values of some types may be, by the name of the type in the help.
struct Words
{
    std::string_view type;
    std::initializer_list<const char*> words;
};

constexpr std::string_view files[] = {"FILE", "COPY", "BACKUP", "A", "B"};

const Words wordLists[] = {
    {"FORM", {"text", "ldif", "json", "value"}},
    {"WHEN", {"auto", "always", "never"}},
    {"SCOPE", {"base", "one", "sub", "children"}},
    {"SHELL", {"bash", "zsh"}},
};

bool takesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

bool isVisible(const CLI::Option& option)
{
    return !option.get_group().empty();
}

bool isPositional(const CLI::Option& option)
{
    return option.get_positional();
}

bool startsWith(std::string_view text, std::string_view beginning)
{
    return text.size() >= beginning.size() && sameName(text.substr(0, beginning.size()), beginning);
}

/// The application's commands.
std::vector<const CLI::App*> commandsOf(const CLI::App& application)
{
    return application.get_subcommands([](const CLI::App*) { return true; });
}

/// The words before the cursor, understood.
class CommandLine
{
public:
    CommandLine(const CLI::App& application, const std::vector<std::string>& words) : application_(application)
    {
        for (const std::string& word : words) {
            take(word);
        }
    }

    const CLI::App* command() const { return command_; }
    const std::optional<std::string>& file() const { return file_; }

    /// The option whose value the next word is, null for none.
    const CLI::Option* waiting() const { return waiting_; }

    /// True behind "--": nothing is an option any more.
    bool optionsHaveEnded() const { return optionsHaveEnded_; }

    /// The options that may stand here, those of the command first.
    Options options() const
    {
        Options all;
        for (const CLI::App* level : {command_ == nullptr ? &front_.writing() : command_, &application_}) {
            const Options own = level->get_options([](const CLI::Option* option) { return !isPositional(*option); });
            all.insert(all.end(), own.begin(), own.end());
        }
        return all;
    }

    const CLI::Option* longOption(std::string_view name) const
    {
        for (const CLI::Option* option : options()) {
            const std::vector<std::string>& names = option->get_lnames();
            if (std::find(names.begin(), names.end(), name) != names.end()) {
                return option;
            }
        }
        return nullptr;
    }

    const CLI::Option* shortOption(char name) const
    {
        for (const CLI::Option* option : options()) {
            const std::vector<std::string>& names = option->get_snames();
            if (std::find(names.begin(), names.end(), std::string(1, name)) != names.end()) {
                return option;
            }
        }
        return nullptr;
    }

    /// The argument that the next word is, null for none.
    const CLI::Option* argument() const
    {
        if (command_ == nullptr) {
            return nullptr;
        }
        std::size_t before = arguments_;
        for (const CLI::Option* option :
             command_->get_options([](const CLI::Option* one) { return isPositional(*one); })) {
            const auto most = static_cast<std::size_t>(option->get_items_expected_max());
            if (before < most) {
                return option;
            }
            before -= most;
        }
        return nullptr;
    }

private:
    void take(const std::string& word)
    {
        if (waiting_ != nullptr) {
            takeValue(*std::exchange(waiting_, nullptr), word);
        } else if (optionsHaveEnded_ || word.size() < 2 || word.front() != '-') {
            takeArgument(word);
        } else if (word == "--") {
            optionsHaveEnded_ = true;
        } else if (word[1] == '-') {
            const std::size_t equals = word.find('=');
            takeOption(longOption(word.substr(2, equals - 2)),
                       equals == std::string::npos ? std::nullopt : std::optional(word.substr(equals + 1)));
        } else {
            takeShortOptions(word);
        }
    }

    void takeShortOptions(const std::string& word)
    {
        for (std::size_t index = 1; index < word.size(); ++index) {
            const CLI::Option* const option = shortOption(word[index]);
            if (option != nullptr && takesValue(*option)) {
                const std::string rest = word.substr(index + 1);
                takeOption(option, rest.empty() ? std::nullopt : std::optional(rest));
                return;
            }
        }
    }

    void takeOption(const CLI::Option* option, const std::optional<std::string>& value)
    {
        if (option == nullptr || !takesValue(*option)) {
            return;
        }
        if (value) {
            takeValue(*option, *value);
        } else {
            waiting_ = option;
        }
    }

    void takeValue(const CLI::Option& option, const std::string& value)
    {
        if (&option == longOption("file")) {
            file_ = value;
        }
    }

    void takeArgument(const std::string& word)
    {
        if (command_ != nullptr) {
            ++arguments_;
            return;
        }
        for (const CLI::App* command : commandsOf(application_)) {
            if (command->get_name() == word) {
                command_ = command;
            }
        }
    }

    const CLI::App& application_;
    const FrontOptions front_;
    const CLI::App* command_ = nullptr; ///< null in front of it
    const CLI::Option* waiting_ = nullptr;
    std::optional<std::string> file_;
    std::size_t arguments_ = 0; ///< of the command
    bool optionsHaveEnded_ = false;
};

/// Collects the candidates that the word at the cursor begins.
class Offer
{
public:
    /// @param before  what stands before the beginning, and before each candidate: "--format="
    Offer(std::string before, std::string beginning) : before_(std::move(before)), beginning_(std::move(beginning)) {}

    const std::string& beginning() const { return beginning_; }
    Completions take() { return std::move(completions_); }

    // A text that a terminal would obey, or could not print, is not offered.
    void add(const std::string& word, const std::string& meaning = {})
    {
        if (startsWith(word, beginning_) && escaped(word) == word) {
            completions_.candidates.push_back({before_ + word, meaning});
        }
    }

    void addUnfinished(const std::string& word)
    {
        add(word);
        completions_.unfinished = !completions_.candidates.empty();
    }

    void addFiles() { completions_.fileNameAt = before_.size(); }

private:
    std::string before_, beginning_;
    Completions completions_;
};

void offerCommands(const CLI::App& application, Offer& offer)
{
    for (const CLI::App* command : commandsOf(application)) {
        offer.add(command->get_name(), command->get_description());
    }
}

void offerOptions(const CommandLine& line, Offer& offer)
{
    for (const CLI::Option* option : line.options()) {
        if (!isVisible(*option)) {
            continue;
        }
        for (const std::string& name : option->get_snames()) {
            offer.add('-' + name, option->get_description());
        }
        for (const std::string& name : option->get_lnames()) {
            offer.add("--" + name, option->get_description());
        }
    }
}

// Short names, as people type them. Full ones come up where their prefix is typed.
void offerNames(Offer& offer, const std::function<bool(const cfg_attr_type&)>& isMeant, const char* behind = "")
{
    for (const cfg_attr_type& type : catalogue()) {
        if (!isMeant(type)) {
            continue;
        }
        const std::string shortened = shortName(type.name);
        for (const std::string& name : {shortened, std::string(type.name)}) {
            if (name != shortened && offer.beginning().empty()) {
                continue;
            }
            if (*behind == '\0') {
                offer.add(name);
            } else {
                offer.addUnfinished(name + behind);
            }
            if (shortened == type.name) {
                break;
            }
        }
    }
}

void offerAssignments(Offer& offer)
{
    const std::string given = offer.beginning();
    const std::size_t equals = given.find('=');
    if (equals == std::string::npos) {
        offerNames(
            offer, [](const cfg_attr_type& type) { return !isPassword(type.name); }, "=");
        return;
    }
    const bool isSigned = equals > 0 && (given[equals - 1] == '+' || given[equals - 1] == '-');
    const std::string name = lookUpName(std::string_view(given).substr(0, equals - (isSigned ? 1 : 0))).name;
    const std::optional<cfg_attr_type> type = attributeType(name);
    const char* const* value = type ? type->enum_values : nullptr;
    for (; value != nullptr && *value != nullptr; ++value) {
        offer.add(given.substr(0, equals + 1) + *value);
    }
}

/// What the kind of a value is called: by its type, or as an argument by its name.
std::string kindOf(const CLI::Option& option)
{
    return isPositional(option) ? option.get_single_name() : option.get_type_name();
}

void offerValues(const CLI::App& application, const CommandLine& line, const CLI::Option& option, Offer& offer,
                 const EntryNames& entryNames)
{
    const std::string kind = kindOf(option);
    const auto any = [](const cfg_attr_type&) { return true; };
    if (std::find(std::begin(files), std::end(files), kind) != std::end(files)) {
        offer.addFiles();
    } else if (kind == "DN" && !option.check_name("-D")) {
        // Who may administer is no entry.
        for (const std::string& dn : entryNames(line.file())) {
            if (!isSecretDn(dn)) {
                offer.add(dn);
            }
        }
    } else if (kind == "NAME" && line.command()->get_name() == "passwd") {
        offerNames(offer, [](const cfg_attr_type& type) { return isPassword(type.name); });
    } else if (kind == "NAME" || kind == "FILTER" || kind == "ATTRIBUTE") {
        offerNames(offer, any);
    } else if (kind == "NAME=VALUE") {
        offerAssignments(offer);
    } else if (kind == "COMMAND") {
        offerCommands(application, offer);
    }
    for (const Words& list : wordLists) {
        for (const char* word : list.words) {
            if (list.type == kind) {
                offer.add(word);
            }
        }
    }
}

/// The option whose value stands in the same word, and where that begins.
std::pair<const CLI::Option*, std::size_t> optionInside(const CommandLine& line, const std::string& word)
{
    const std::size_t equals = word.find('=');
    if (word.starts_with("--") && equals != std::string::npos) {
        return {line.longOption(word.substr(2, equals - 2)), equals + 1};
    }
    if (word.starts_with("--")) {
        return {};
    }
    for (std::size_t index = 1; index + 1 < word.size(); ++index) {
        const CLI::Option* const option = line.shortOption(word[index]);
        if (option == nullptr || takesValue(*option)) {
            return {option, index + 1};
        }
    }
    return {};
}

} // namespace

Completions complete(const CLI::App& application, const std::vector<std::string>& words, const std::string& current,
                     const EntryNames& entryNames)
{
    const CommandLine line(application, words);
    const bool isOption = !current.empty() && current.front() == '-' && !line.optionsHaveEnded();
    if (line.waiting() == nullptr && isOption) {
        const auto [option, place] = optionInside(line, current);
        if (option != nullptr && takesValue(*option)) {
            Offer offer(current.substr(0, place), current.substr(place));
            offerValues(application, line, *option, offer, entryNames);
            return offer.take();
        }
        Offer offer("", current);
        offerOptions(line, offer);
        return offer.take();
    }
    Offer offer("", current);
    const CLI::Option* const option = line.waiting() != nullptr ? line.waiting() : line.argument();
    if (option != nullptr) {
        offerValues(application, line, *option, offer, entryNames);
    } else if (line.command() == nullptr) {
        offerCommands(application, offer);
    }
    return offer.take();
}

} // namespace veltor::tool
