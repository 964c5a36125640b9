/*
 * Reads settings with their types, and checks the file: a program in C++20.
 *
 *     c++ -std=c++20 -o report report.cpp $(pkg-config --cflags --libs veltorstl)
 *     ./report FILE
 *
 * It shows owners for what the C API hands out, so that nothing is freed by hand; codes that become exceptions; numbers
 * and switches instead of texts, with the limits from the catalogue of types; and the check with its findings. It ends
 * with 0, with 1 for findings, and with 2 when the file can't be read. It never writes.
 */
#include <veltor/cfg.h>
#include <veltor/cfg_admin.h>

#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <strings.h>
#include <vector>

namespace {

// ---- Owners ----

/// The deleter of a std::unique_ptr that frees with a function of the API.
template <auto function>
struct FreeWith
{
    template <class Resource>
    void operator()(Resource* resource) const
    {
        function(resource);
    }
};

using Handle = std::unique_ptr<void, FreeWith<cfg_unbind>>;
using Result = std::unique_ptr<cfg_message, FreeWith<cfg_msgfree>>;
using Cursor = std::unique_ptr<cfg_cursor, FreeWith<cfg_ber_free>>;
using Text = std::unique_ptr<char, FreeWith<cfg_memfree>>;
using Values = std::unique_ptr<char*, FreeWith<cfg_value_free>>;

// ---- Failures ----

class ConfigurationError : public std::runtime_error
{
public:
    ConfigurationError(const std::string& message, int code) : std::runtime_error(message), code_(code) {}

    /// An LDAP result code below 1000, else a library code.
    int code() const { return code_; }

private:
    int code_;
};

/// Turns the code of a call into an exception, with what the handle keeps of the failure until its next call.
void require(const Handle& handle, const std::string& what, int result)
{
    if (result == LDAP_SUCCESS) {
        return;
    }
    const int kept = cfg_get_exterror(handle.get());
    const int code = kept == LDAP_SUCCESS ? result : kept;
    std::string message = what + ": " + cfg_err2string(code);
    if (cfg_get_file_line(handle.get()) > 0) {
        message += " (line " + std::to_string(cfg_get_file_line(handle.get())) + ")";
    }
    throw ConfigurationError(message, code);
}

// ---- Entries ----

struct NoCase
{
    bool operator()(const std::string& left, const std::string& right) const
    {
        return strcasecmp(left.c_str(), right.c_str()) < 0;
    }
};

/// A copy, which needs no handle any more.
struct Entry
{
    std::string dn;
    std::map<std::string, std::vector<std::string>, NoCase> attributes;
};

/// A file that is open for reading. One thread at a time may use it.
class Configuration
{
public:
    /// @throws ConfigurationError when the file can't be read, or is no configuration
    explicit Configuration(const std::string& file) : handle_(cfg_init())
    {
        if (!handle_) {
            throw std::bad_alloc();
        }
        require(handle_, file, cfg_set_option(handle_.get(), CFG_OPT_CONFIG_FILE, file.c_str()));
        // Before the bind, or its load would write a file with lines that can't be used.
        require(handle_, file, cfg_set_write_mode(handle_.get(), CFG_WRITE_NEVER));
        // An anonymous bind may read everything.
        require(handle_, file, cfg_bind_s(handle_.get(), nullptr, nullptr, LDAP_AUTH_SIMPLE));
    }

    /// An entry as the file has it now, with the attributes that are named: who asks for all gets the passwords, too,
    /// as clear text.
    /// @throws ConfigurationError 32 for one that does not exist; what reading a file that has changed ends with
    Entry entry(const std::string& dn, std::vector<std::string> names) const
    {
        std::vector<char*> list;
        for (std::string& name : names) {
            list.push_back(name.data());
        }
        list.push_back(nullptr);
        cfg_message* found = nullptr;
        const int code = cfg_search_s(handle_.get(), dn.c_str(), LDAP_SCOPE_BASE, nullptr, list.data(), 0, &found);
        const Result result(found);
        // A search finds nothing without a failure where the entry has no objectclass.
        require(handle_, dn, code == LDAP_SUCCESS && !result ? LDAP_NO_SUCH_OBJECT : code);
        return copyOf(result.get());
    }

private:
    Entry copyOf(cfg_message* node) const
    {
        // Where these functions give null it means "none" or "failed"; the handle knows which.
        const auto check = [this] { require(handle_, "entry", cfg_get_errno(handle_.get())); };
        const Text dn(cfg_get_dn(handle_.get(), node));
        check();
        Entry entry{dn.get(), {}};
        cfg_cursor* position = nullptr;
        Text name(cfg_first_attribute(handle_.get(), node, &position));
        const Cursor cursor(position);
        check();
        while (name) {
            const Values values(cfg_get_values(handle_.get(), node, name.get()));
            check();
            entry.attributes[name.get()].assign(values.get(), values.get() + cfg_count_values(values.get()));
            name.reset(cfg_next_attribute(handle_.get(), node, cursor.get()));
            check();
        }
        return entry;
    }

    Handle handle_;
};

// ---- Typed settings ----

/// The type of a setting, the same for every file.
const cfg_attr_type& typeOf(const std::string& name)
{
    static const auto types = [] {
        std::map<std::string, cfg_attr_type, NoCase> all;
        cfg_attr_type type = {};
        for (int index = 0; cfg_attr_type_at(index, &type) == LDAP_SUCCESS; ++index) {
            all.emplace(type.name, type);
        }
        return all;
    }();
    const auto type = types.find(name);
    if (type == types.end()) {
        throw std::invalid_argument(name + " is no setting");
    }
    return type->second;
}

/// The value as the load has left it: what its type refuses does not get so far.
/// @throws ConfigurationError 16 where it is not set; std::invalid_argument where it is of another type
const std::string& valueOf(const Entry& entry, const std::string& name, const std::string& syntax)
{
    if (typeOf(name).syntax != syntax) {
        throw std::invalid_argument(name + " is of the type " + typeOf(name).syntax);
    }
    const auto attribute = entry.attributes.find(name);
    if (attribute == entry.attributes.end() || attribute->second.empty()) {
        throw ConfigurationError(entry.dn + ": " + name + " is not set", LDAP_NO_SUCH_ATTRIBUTE);
    }
    return attribute->second.front();
}

int numberOf(const Entry& entry, const std::string& name)
{
    return std::stoi(valueOf(entry, name, "int"));
}

/// The word in the spelling of the catalogue; the file may have it in any letter case.
std::string wordOf(const Entry& entry, const std::string& name)
{
    const std::string& value = valueOf(entry, name, "enum");
    const char* const* word = typeOf(name).enum_values;
    while (*word != nullptr && strcasecmp(*word, value.c_str()) != 0) {
        ++word;
    }
    return *word == nullptr ? value : *word;
}

bool isOn(const Entry& entry, const std::string& name)
{
    return wordOf(entry, name) == "true";
}

void report(const Configuration& configuration)
{
    const std::vector<std::string> numbers = {"zor-slapdPort", "zor-slapdWorkers", "zor-slapdTimeLimit"};
    const Entry limits = configuration.entry("cn=Configuration", numbers);
    for (const std::string& name : numbers) {
        const cfg_attr_type& type = typeOf(name);
        const int number = numberOf(limits, name);
        std::cout << name << " is " << number << ", within " << type.minimum << " to " << type.maximum << '\n';
    }
    const std::string aliases = "zor-slapdDerefAliases";
    const std::string word = wordOf(configuration.entry("cn=Configuration", {aliases}), aliases);
    std::cout << aliases << " is " << word << ", one of";
    for (const char* const* one = typeOf(aliases).enum_values; *one != nullptr; ++one) {
        std::cout << ' ' << *one;
    }
    std::cout << '\n';
    const std::string anonymous = "zor-slapdAllowAnon";
    const std::string connections = "cn=Connections, cn=Front End, cn=Configuration";
    const bool areWelcome = isOn(configuration.entry(connections, {anonymous}), anonymous);
    std::cout << "clients without a name are " << (areWelcome ? "welcome" : "refused") << '\n';
}

// ---- The check ----

struct Finding
{
    int severity;
    int line;
    std::string kind;
    std::string message;
};

struct Collection
{
    std::vector<Finding> findings;
    std::exception_ptr failure;
};

/// Called from the library, through which no exception may pass. The texts live during the call only.
int collect(void* context, const cfg_finding* finding)
{
    auto& collection = *static_cast<Collection*>(context);
    try {
        collection.findings.push_back({finding->severity, finding->line, finding->kind, finding->message});
        return 0;
    } catch (...) {
        collection.failure = std::current_exception();
        return 1;
    }
}

/// What is wrong with a file, which need not load.
std::vector<Finding> runCheck(const std::string& file)
{
    const Handle handle(cfg_init());
    if (!handle) {
        throw std::bad_alloc();
    }
    Collection collection;
    require(handle, file, cfg_check_s(handle.get(), file.c_str(), collect, &collection));
    if (collection.failure) {
        std::rethrow_exception(collection.failure);
    }
    return collection.findings;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: report FILE\n";
        return 2;
    }
    try {
        const std::vector<Finding> findings = runCheck(argv[1]);
        for (const Finding& finding : findings) {
            // Line 0 is the file as a whole.
            std::cout << argv[1] << ':' << (finding.line == 0 ? "" : std::to_string(finding.line) + ":") << " severity "
                      << finding.severity << ", " << finding.kind << ": " << finding.message << '\n';
        }
        report(Configuration(argv[1]));
        return findings.empty() ? 0 : 1;
    } catch (const ConfigurationError& error) {
        std::cout.flush();
        std::cerr << error.what() << " (code " << error.code() << ")\n";
    } catch (const std::exception& error) {
        std::cout.flush();
        std::cerr << error.what() << '\n';
    }
    return 2;
}
