// The parser gives an option to the command that it stands behind, and to nobody if that comes later.
#include "front_options.h"

namespace veltor::tool {

namespace {

bool takesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

} // namespace

FrontOptions::FrontOptions()
{
    for (CLI::App* const app : {&common_, &writing_}) {
        app->set_help_flag();
    }
    addTargetOptions(common_, target_);
    addOutputOptions(common_, output_);
    addWriteOptions(writing_, write_);
}

const CLI::Option* FrontOptions::find(const std::string& name) const
{
    const CLI::Option* const option = writing_.get_option_no_throw(name);
    return option != nullptr ? option : common_.get_option_no_throw(name);
}

FrontOptions::Meaning FrontOptions::meaningOf(const std::string& word) const
{
    Meaning meaning;
    if (word.starts_with("--")) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const CLI::Option* const option = find(name);
        meaning.isWriting = writing_.get_option_no_throw(name) != nullptr;
        meaning.takesNext = option != nullptr && takesValue(*option) && equals == std::string::npos;
        return meaning;
    }
    // Several letters may share a word; what stands behind one that takes a value is the value.
    for (std::size_t index = 1; index < word.size(); ++index) {
        const std::string name = std::string("-") + word[index];
        const CLI::Option* const option = find(name);
        meaning.isWriting = meaning.isWriting || writing_.get_option_no_throw(name) != nullptr;
        if (option != nullptr && takesValue(*option)) {
            meaning.takesNext = index + 1 == word.size();
            break;
        }
    }
    return meaning;
}

std::vector<std::string> FrontOptions::putBehind(const std::vector<std::string>& words) const
{
    std::vector<std::string> result;
    std::vector<std::string> writing;
    auto word = words.begin();
    for (; word != words.end() && word->size() > 1 && word->front() == '-' && *word != "--"; ++word) {
        const Meaning meaning = meaningOf(*word);
        std::vector<std::string>& place = meaning.isWriting ? writing : result;
        place.push_back(*word);
        if (meaning.takesNext && word + 1 != words.end()) {
            place.push_back(*++word);
        }
    }
    // Without a command they are left out: that it is missing is what there is to tell.
    if (word != words.end()) {
        result.push_back(*word++);
        result.insert(result.end(), writing.begin(), writing.end());
    }
    result.insert(result.end(), word, words.end());
    return result;
}

} // namespace veltor::tool
