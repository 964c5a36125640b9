// The JSON document of a run: one for every run, whatever came of it. share/veltor/output.schema.json describes it.
#ifndef VELTOR_TOOL_DOCUMENT_H
#define VELTOR_TOOL_DOCUMENT_H

#include "exit_codes.h"
#include "failure.h"
#include "ldif_output.h"
#include "wiped_text.h"

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <veltor/cfg.h>

namespace veltor::tool {

/// {"veltor":1,"ok":...,"changed":...,"file":...} and what the command adds, in the order in which it is added;
/// entries come last but for the error.
class Document
{
public:
    Document();
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document();

    void setFile(std::string_view file);
    /// Says that the configuration file was changed, or would be by a run that is not dry.
    void setChanged();
    /// Adds a member, or replaces it.
    void set(const char* name, nlohmann::ordered_json value);
    /// Adds a text that may hold a secret: it is wiped with the document.
    void setText(const char* name, std::string_view text);
    /// Adds an entry to "entries": values as an array for each attribute, null once for all that are hidden, and
    /// for a hidden DN.
    void addEntry(const cfg_message& entry, const EntryForm& form);
    /// Makes "entries" a member also when no entry is added.
    void beginEntries();
    void setFailure(const Failure& failure);

    /// The document in one line, in ASCII, so that nothing in it can reach a terminal as a control character.
    WipedText text(ExitCode exit) const;

private:
    std::unique_ptr<nlohmann::ordered_json> members_;
    // On their own, since the JSON library would leave copies of shown passwords in memory.
    WipedText texts_, entries_;
    bool hasEntries_ = false;
};

/// A text as the document has it: a string, or {"base64":"..."} for what is not UTF-8.
nlohmann::ordered_json jsonText(std::string_view text);

/// null for a DN that has taken a secret's line into it.
nlohmann::ordered_json jsonDn(std::string_view dn);

/// As jsonText, but null for an empty text.
nlohmann::ordered_json jsonTextOrNull(std::string_view text);

} // namespace veltor::tool

#endif
