// Modification lists for the update calls.
#ifndef VELTOR_TESTS_MODS_H
#define VELTOR_TESTS_MODS_H

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ldap.h>

namespace veltor::test {

/// How a list hands over its values.
enum class Form {
    texts,   ///< as mod_values
    bervals, ///< as mod_bvalues, with rubbish behind the first NUL and lengths that tell nothing
};

/// One modification in words. No values at all stand for a null array.
struct Change
{
    int operation;
    std::string type;
    std::optional<std::vector<std::string>> values;
};

/// A null-terminated list of LDAPMod records with everything that they point to. Stays where it is made.
class Mods
{
public:
    Mods() = default;
    Mods(const std::vector<Change>& changes, Form form = Form::texts)
    {
        for (const auto& change : changes) {
            add(change, form);
        }
    }
    Mods(const Mods&) = delete;
    Mods& operator=(const Mods&) = delete;

    LDAPMod& add(const Change& change, Form form = Form::texts)
    {
        Record& record = records_.emplace_back();
        record.type = change.type;
        record.mod.mod_op = change.operation;
        record.mod.mod_type = record.type.data();
        if (form == Form::bervals) {
            record.mod.mod_op |= LDAP_MOD_BVALUES;
        }
        if (change.values) {
            record.fill(*change.values, form);
        }
        pointers_.back() = &record.mod;
        pointers_.push_back(nullptr);
        return record.mod;
    }

    /// Adds a record of texts without a type.
    void addWithoutType(int operation) { add({operation, "", {{"value"}}}).mod_type = nullptr; }

    /// Adds a record with two bervals, the second of which has no data.
    void addWithoutData(int operation, const std::string& type)
    {
        add({operation, type, {{"first", "second"}}}, Form::bervals);
        records_.back().bervals.back().bv_val = nullptr;
    }

    LDAPMod** list() { return pointers_.data(); }

private:
    struct Record
    {
        std::string type;
        std::vector<std::string> texts;
        std::vector<char*> values;
        std::vector<berval> bervals;
        std::vector<berval*> bervalPointers;
        LDAPMod mod{};

        void fill(const std::vector<std::string>& given, Form form)
        {
            texts = given;
            if (form == Form::texts) {
                for (auto& text : texts) {
                    values.push_back(text.data());
                }
                values.push_back(nullptr);
                mod.mod_values = values.data();
                return;
            }
            bervals.reserve(texts.size());
            for (auto& text : texts) {
                // Shorter, longer and right: the length must not matter.
                const std::size_t lengths[] = {0, text.size() + 3, text.size(), 1};
                const std::size_t length = lengths[bervals.size() % std::size(lengths)];
                text.append("\0rubbish", 8);
                bervals.push_back({static_cast<ber_len_t>(length), text.data()});
                bervalPointers.push_back(&bervals.back());
            }
            bervalPointers.push_back(nullptr);
            mod.mod_bvalues = bervalPointers.data();
        }
    };

    std::deque<Record> records_;
    std::vector<LDAPMod*> pointers_{nullptr};
};

inline constexpr Form bothForms[] = {Form::texts, Form::bervals};

inline const char* nameOf(Form form)
{
    return form == Form::texts ? "texts" : "bervals";
}

} // namespace veltor::test

#endif
