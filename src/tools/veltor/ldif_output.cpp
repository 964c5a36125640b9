// Works on the result nodes themselves: a copy of a value that the walking functions hand out would be one
// more place where a password stays behind.
#include "ldif_output.h"

#include "escape.h"
#include "failure.h"
#include "results.h"
#include "secrets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string.h>
#include <string>
#include <unistd.h>

namespace veltor::tool {

namespace {

bool isBlank(char character)
{
    return character == ' ' || character == '\t';
}

bool isPrintableOrTab(char character)
{
    return character == '\t' || (character >= 0x20 && character < 0x7F);
}

bool isLetterOrDigit(char character)
{
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           (character >= '0' && character <= '9');
}

// AttributeDescription of RFC 2849, with the underscore that older files have.
bool isAttributeName(std::string_view name)
{
    const auto allowed = [](char character) {
        return isLetterOrDigit(character) || character == '-' || character == '.' || character == ';' ||
               character == '_';
    };
    return !name.empty() && isLetterOrDigit(name.front()) && std::all_of(name.begin(), name.end(), allowed);
}

// Files may hold any text before a colon as a name; an LDIF reader would stumble over most of it.
void appendNameAndValue(WipedText& out, std::string_view name, std::string_view value)
{
    if (isAttributeName(name)) {
        appendLdifLine(out, name, value);
        return;
    }
    append(out, "# not an attribute name: ");
    appendEscaped(out, name);
    append(out, value.empty() ? "" : ": ");
    appendEscaped(out, value);
    out.push_back('\n');
}

void appendAttribute(WipedText& out, const cfg_message& attribute, const EntryForm& form)
{
    const std::string_view name = textOf(attribute);
    const std::string_view shown = form.showSecrets ? name : shownName(name);
    if (form.namesOnly) {
        appendNameAndValue(out, shown, "");
        return;
    }
    if (attribute.children == nullptr) {
        appendLdifComment(out, std::string(shown) + ": no value");
        return;
    }
    bool hidden = false;
    for (const cfg_message* value = attribute.children; value != nullptr; value = value->next) {
        if (form.showSecrets || !isSecret(name, textOf(*value))) {
            appendNameAndValue(out, shown, textOf(*value));
        } else if (!hidden) {
            // One line for all of them: how many passwords there are is nobody's business either.
            appendLdifComment(out, std::string(shown) + ": hidden");
            hidden = true;
        }
    }
}

void appendComment(WipedText& out, const cfg_message& entry, const cfg_message* attribute, const EntryForm& form)
{
    if (!form.commentOf) {
        return;
    }
    const std::string comment = form.commentOf(entry, attribute);
    if (comment.empty()) {
        return;
    }
    std::string_view rest = comment;
    for (;;) {
        const std::size_t feed = rest.find('\n');
        const std::string_view line = rest.substr(0, feed);
        const std::size_t begin = std::min(line.find_first_not_of("# \t"), line.size());
        appendLdifComment(out, !form.showSecrets && isSecretLine(line.substr(begin)) ? "hidden" : line);
        if (feed == std::string_view::npos) {
            return;
        }
        rest.remove_prefix(feed + 1);
    }
}

} // namespace

bool standsPlain(std::string_view text)
{
    if (text.empty()) {
        return true;
    }
    const bool begins = !isBlank(text.front()) && text.front() != ':' && text.front() != '<';
    return begins && !isBlank(text.back()) && std::all_of(text.begin(), text.end(), isPrintableOrTab);
}

void appendBase64(WipedText& out, std::string_view bytes)
{
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view group = bytes.substr(at, 3);
        unsigned long bits = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            bits = (bits << 8U) | (index < group.size() ? static_cast<unsigned char>(group[index]) : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            // One byte fills two digits, two fill three; the rest of the four is padding.
            out.push_back(index <= group.size() ? alphabet[(bits >> (18U - 6U * index)) & 0x3FU] : '=');
        }
    }
}

void appendLdifLine(WipedText& out, std::string_view name, std::string_view text)
{
    append(out, name);
    if (text.empty()) {
        append(out, ":");
    } else if (standsPlain(text)) {
        append(out, ": ");
        append(out, text);
    } else {
        append(out, ":: ");
        appendBase64(out, text);
    }
    out.push_back('\n');
}

void appendLdifComment(WipedText& out, std::string_view text)
{
    append(out, text.empty() ? "#" : "# ");
    appendEscaped(out, text);
    out.push_back('\n');
}

void appendEntry(WipedText& out, const cfg_message& entry, const EntryForm& form)
{
    if (!form.showSecrets && isSecretDn(textOf(entry))) {
        // What it has would be read as the attributes of no entry.
        appendLdifComment(out, "dn: hidden");
        out.push_back('\n');
        return;
    }
    appendComment(out, entry, nullptr, form);
    appendLdifLine(out, "dn", textOf(entry));
    for (const cfg_message* attribute = entry.children; attribute != nullptr; attribute = attribute->next) {
        if (!form.chosen || form.chosen(textOf(*attribute))) {
            appendComment(out, entry, attribute, form);
            appendAttribute(out, *attribute, form);
        }
    }
    out.push_back('\n');
}

void wipeSecrets(cfg_message* result)
{
    for (const cfg_message* entry = result; entry != nullptr; entry = entry->next) {
        for (const cfg_message* attribute = entry->children; attribute != nullptr; attribute = attribute->next) {
            for (const cfg_message* value = attribute->children; value != nullptr; value = value->next) {
                if (value->text != nullptr && isSecret(textOf(*attribute), textOf(*value))) {
                    ::explicit_bzero(value->text, std::strlen(value->text));
                }
            }
        }
    }
}

void writeOut(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw Failure(ExitCode::writeFailed, std::string("the output can't be written: ") + std::strerror(errno),
                          {"the configuration file is not concerned; look for room, or print somewhere else"});
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace veltor::tool
