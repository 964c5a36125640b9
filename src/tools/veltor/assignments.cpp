// An assignment is checked like a line of change records, so that both refuse the same.
#include "assignments.h"

#include "failure.h"
#include "names.h"
#include "secrets.h"

#include <algorithm>
#include <utility>

namespace veltor::tool {

namespace {

const std::string nothingWritten = "nothing was written";

struct Assignment
{
    ChangeOperation::Kind kind;
    std::string name, value;
};

/// What helps who has given no assignment: most often it is a setting, and its value is the next argument.
std::string adviceAbout(const std::string& text)
{
    const std::string name = lookUpName(text).name;
    if (name.empty()) {
        return "see: veltor help set";
    }
    return isPassword(name) ? "use: veltor passwd " + name
                            : "a setting and its value are one argument: " + text + "=VALUE";
}

// The name is what stands before the first "=", without the sign directly before that.
Assignment parsed(const std::string& text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw Failure(ExitCode::usage, '"' + text + "\" is not NAME=VALUE, NAME+=VALUE or NAME-=VALUE",
                      {nothingWritten + "; " + adviceAbout(text)});
    }
    const char sign = text[equals - 1];
    const bool isSigned = sign == '+' || sign == '-';
    Assignment assignment{sign == '+'   ? ChangeOperation::Kind::add
                          : sign == '-' ? ChangeOperation::Kind::remove
                                        : ChangeOperation::Kind::replace,
                          text.substr(0, equals - (isSigned ? 1 : 0)), text.substr(equals + 1)};
    if (assignment.value.empty()) {
        throw Failure(ExitCode::usage, assignment.name + ": there is no value",
                      {nothingWritten + "; to remove the setting use: veltor unset " + assignment.name},
                      {.attribute = assignment.name});
    }
    return assignment;
}

} // namespace

std::string settingName(const std::string& given, bool allowUnknown)
{
    const NameResult result = lookUpName(given);
    if (!result.name.empty()) {
        return result.name;
    }
    if (!isAttributeDescription(given) || isDnLabel(given)) {
        throw Failure(ExitCode::refused, '"' + given + "\" is not an attribute name",
                      {"nothing was written; see: veltor explain --list"}, {.attribute = given});
    }
    if (result.ambiguous || !allowUnknown) {
        refuseName(given, result,
                   {result.ambiguous ? "nothing was written; give the name in full"
                                     : "nothing was written; --allow-unknown stores it as free text"});
    }
    return given;
}

ChangeRecord recordOf(const std::string& dn, const std::vector<std::string>& assignments, const std::string& comment,
                      bool allowUnknown)
{
    ChangeRecord record{ChangeRecord::Kind::modify, dn, {}, {}};
    for (const std::string& text : assignments) {
        const Assignment assignment = parsed(text);
        const std::string name = settingName(assignment.name, allowUnknown);
        if (isPassword(name)) {
            throw Failure(ExitCode::usage, name + ": a password on the command line shows in the process list",
                          {std::string(nothingWritten).append("; use: veltor passwd ").append(name)},
                          factsAbout(dn, name));
        }
        ChangeValue value;
        append(value.text, assignment.value);
        if (const std::optional<std::string> finding = whyUnstorable(name, view(value.text))) {
            std::string message = dn;
            message.append(": ").append(name).append(": ").append(*finding);
            throw Failure(ExitCode::refused, message, {nothingWritten + explainAdvice(name)},
                          factsAbout(dn, name, view(value.text)));
        }
        value.text.push_back('\0');
        auto operation =
            std::find_if(record.operations.begin(), record.operations.end(), [&](const ChangeOperation& known) {
                return known.kind == assignment.kind && sameName(known.attribute, name);
            });
        if (operation == record.operations.end()) {
            record.operations.push_back({assignment.kind, name, {}, {}, comment});
            operation = std::prev(record.operations.end());
        }
        operation->values.push_back(std::move(value));
    }
    return record;
}

} // namespace veltor::tool
