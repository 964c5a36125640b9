// Entries are written by hand into memory that is wiped; the rest is for the JSON library.
#include "document.h"

#include "escape.h"
#include "results.h"
#include "secrets.h"

#include <cstdint>
#include <nlohmann/json.hpp>

namespace veltor::tool {

namespace {

using Json = nlohmann::ordered_json;

bool isUtf8(std::string_view text)
{
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        if (character.length == 0) {
            return false;
        }
        text.remove_prefix(character.length);
    }
    return true;
}

void appendUnit(WipedText& out, std::uint32_t unit)
{
    static constexpr char digits[] = "0123456789abcdef";
    append(out, "\\u");
    for (int shift = 12; shift >= 0; shift -= 4) {
        out.push_back(digits[(unit >> static_cast<unsigned>(shift)) & 0x0FU]);
    }
}

void appendEscapedCharacter(WipedText& out, std::uint32_t codePoint)
{
    if (codePoint == '"' || codePoint == '\\') {
        out.push_back('\\');
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint >= 0x20 && codePoint < 0x7F) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x10000) {
        appendUnit(out, codePoint);
    } else {
        appendUnit(out, 0xD800U + ((codePoint - 0x10000U) >> 10U));
        appendUnit(out, 0xDC00U + ((codePoint - 0x10000U) & 0x3FFU));
    }
}

// The text must be UTF-8.
void appendString(WipedText& out, std::string_view text)
{
    out.push_back('"');
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        appendEscapedCharacter(out, character.codePoint);
        text.remove_prefix(character.length);
    }
    out.push_back('"');
}

void appendText(WipedText& out, std::string_view text)
{
    if (isUtf8(text)) {
        appendString(out, text);
        return;
    }
    append(out, R"({"base64":")");
    appendBase64(out, text);
    append(out, "\"}");
}

void appendValues(WipedText& out, const cfg_message& attribute, const EntryForm& form)
{
    bool first = true;
    bool hidden = false;
    const auto separate = [&] {
        append(out, first ? "" : ",");
        first = false;
    };
    for (const cfg_message* value = attribute.children; value != nullptr; value = value->next) {
        if (form.showSecrets || !isSecret(textOf(attribute), textOf(*value))) {
            separate();
            appendText(out, textOf(*value));
        } else if (!hidden) {
            separate();
            append(out, "null");
            hidden = true;
        }
    }
}

Json jsonValue(const std::optional<std::string>& value)
{
    return value ? jsonText(*value) : Json(nullptr);
}

template <typename T>
Json numberOrNull(const std::optional<T>& number)
{
    return number ? Json(*number) : Json(nullptr);
}

Json lineOrNull(int line)
{
    return line > 0 ? Json(line) : Json(nullptr);
}

/// Facts have a mask for what is hidden.
Json factOrNull(std::string_view fact)
{
    return fact == secretMask ? Json(nullptr) : jsonTextOrNull(fact);
}

Json jsonPlace(const SourcePlace& place)
{
    return place.line == 0 ? Json(nullptr)
                           : Json{{"file", jsonText(place.name)}, {"line", place.line}, {"column", place.column}};
}

Json jsonTexts(const std::vector<std::string>& texts)
{
    Json array = Json::array();
    for (const std::string& text : texts) {
        array.push_back(jsonText(text));
    }
    return array;
}

Json jsonCauses(const std::vector<Cause>& causes)
{
    Json array = Json::array();
    for (const Cause& cause : causes) {
        array.push_back({{"ldap", cause.ldap},
                         {"code", cause.code},
                         {"message", jsonText(cause.message)},
                         {"file", jsonTextOrNull(cause.file)},
                         {"line", lineOrNull(cause.line)},
                         {"dn", factOrNull(cause.dn)},
                         {"attribute", jsonTextOrNull(cause.attribute)},
                         {"value", jsonValue(cause.value)}});
    }
    return array;
}

} // namespace

Document::Document() : members_(std::make_unique<Json>(Json::object())) {}

Document::~Document() = default;

void Document::setFile(std::string_view file)
{
    set("file", jsonText(file));
}

void Document::setChanged()
{
    set("changed", true);
}

void Document::set(const char* name, Json value)
{
    (*members_)[name] = std::move(value);
}

void Document::setText(const char* name, std::string_view text)
{
    append(texts_, ",");
    appendString(texts_, name);
    append(texts_, ":");
    appendText(texts_, text);
}

void Document::beginEntries()
{
    hasEntries_ = true;
}

void Document::addEntry(const cfg_message& entry, const EntryForm& form)
{
    hasEntries_ = true;
    append(entries_, entries_.empty() ? R"({"dn":)" : R"(,{"dn":)");
    if (form.showSecrets || !isSecretDn(textOf(entry))) {
        appendText(entries_, textOf(entry));
    } else {
        append(entries_, "null");
    }
    append(entries_, R"(,"attributes":{)");
    const char* separator = "";
    std::size_t hiddenNames = 0;
    for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
        if (form.chosen && !form.chosen(attribute->text)) {
            continue;
        }
        append(entries_, std::exchange(separator, ","));
        // A member's name has no other form than a string, and no other member has it.
        std::string name(form.showSecrets ? textOf(*attribute) : shownName(textOf(*attribute)));
        if (name == secretMask && ++hiddenNames > 1) {
            name = numberedMask(hiddenNames);
        }
        appendString(entries_, isUtf8(name) ? name : escaped(name));
        append(entries_, ":[");
        if (!form.namesOnly) {
            appendValues(entries_, *attribute, form);
        }
        append(entries_, "]");
    }
    append(entries_, "}}");
}

void Document::setFailure(const Failure& failure)
{
    const FailureFacts& facts = failure.facts();
    set("error", {{"exit", static_cast<int>(failure.exit())},
                  {"ldap", facts.ldap},
                  {"code", facts.code},
                  {"message", jsonText(failure.what())},
                  {"details", jsonTexts(failure.details())},
                  {"file", jsonTextOrNull(facts.file)},
                  {"line", lineOrNull(facts.line)},
                  {"dn", factOrNull(facts.dn)},
                  {"attribute", jsonTextOrNull(facts.attribute)},
                  {"value", jsonValue(facts.value)},
                  {"min", numberOrNull(facts.minimum)},
                  {"max", numberOrNull(facts.maximum)},
                  {"enum", facts.allowed.empty() ? Json(nullptr) : jsonTexts(facts.allowed)},
                  {"mask", numberOrNull(facts.mask)},
                  {"single", numberOrNull(facts.single)},
                  {"source", jsonPlace(facts.source)},
                  {"chain", jsonCauses(facts.chain)}});
}

WipedText Document::text(ExitCode exit) const
{
    Json document{{"veltor", 1}, {"ok", exit == ExitCode::done}, {"changed", false}};
    for (const auto& [name, value] : members_->items()) {
        document[name] = value;
    }
    Json error;
    if (const auto found = document.find("error"); found != document.end()) {
        error = *found;
        document.erase(found);
    }
    std::string members = document.dump(-1, ' ', true);
    members.pop_back();
    WipedText out;
    append(out, members);
    append(out, view(texts_));
    if (hasEntries_ && error.is_null()) {
        append(out, R"(,"entries":[)");
        append(out, view(entries_));
        append(out, "]");
    }
    if (!error.is_null()) {
        append(out, R"(,"error":)");
        append(out, error.dump(-1, ' ', true));
    }
    append(out, "}\n");
    return out;
}

Json jsonText(std::string_view text)
{
    if (isUtf8(text)) {
        return std::string(text);
    }
    WipedText encoded;
    appendBase64(encoded, text);
    return {{"base64", std::string(view(encoded))}};
}

Json jsonDn(std::string_view dn)
{
    return isSecretDn(dn) ? Json(nullptr) : jsonText(dn);
}

Json jsonTextOrNull(std::string_view text)
{
    return text.empty() ? Json(nullptr) : jsonText(text);
}

} // namespace veltor::tool
