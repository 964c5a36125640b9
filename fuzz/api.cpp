// Scripts of calls of the public interface. An input is a configuration file up to a line "%%", and behind it one call
// on each line, its words separated by "|"; the table at the end of this file names the calls. Whatever the order, no
// call crashes, keeps a code other than the one that it returns, hands out something that can't be freed, or leaves
// something behind. Where nothing may be written the file keeps its bytes.
#include "fuzz.h"
#include "support/findings.h"
#include "support/mods.h"
#include "support/temporary_folder.h"

#include "veltor/cfg.h"
#include "veltor/cfg_admin.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

using namespace veltor::fuzz;
using veltor::test::Change;
using veltor::test::Findings;
using veltor::test::Form;
using veltor::test::Mods;
using veltor::test::TemporaryFolder;

namespace {

constexpr char configName[] = "zorslapd.conf";

/// The words of one call. A word that is missing is a null pointer for the interface.
class Words
{
public:
    explicit Words(std::string_view line)
    {
        while (true) {
            const bool isLast = line.find('|') == std::string_view::npos;
            words_.push_back(decoded(takeUpTo(line, "|")));
            if (isLast) {
                return;
            }
        }
    }

    const std::string& name() const { return words_.front(); }
    /// The words from a position on, each as a line.
    std::string lines(std::size_t position) const
    {
        std::string text;
        for (; position < words_.size(); ++position) {
            text.append(words_[position]).append("\n");
        }
        return text;
    }
    std::size_t count() const { return words_.size() - 1; }
    const char* text(std::size_t position) const
    {
        return position < words_.size() ? words_[position].c_str() : nullptr;
    }
    long number(std::size_t position) const
    {
        return position < words_.size() ? std::strtol(words_[position].c_str(), nullptr, 0) : 0;
    }
    /// One of a fixed set: what an input says must not name files elsewhere.
    template <std::size_t size>
    const char* choice(std::size_t position, const char* const (&choices)[size]) const
    {
        return choices[static_cast<std::size_t>(number(position)) % size];
    }
    /// The words from a position on, null-terminated, as the interface takes a list.
    std::vector<char*> list(std::size_t position)
    {
        std::vector<char*> texts;
        for (; position < words_.size(); ++position) {
            texts.push_back(words_[position].data());
        }
        texts.push_back(nullptr);
        return texts;
    }

private:
    /// "^J" stands for a line feed, which ends a call otherwise.
    static std::string decoded(std::string_view word)
    {
        std::string text;
        while (!word.empty()) {
            const bool isCut = word.find("^J") != std::string_view::npos;
            text.append(takeUpTo(word, "^J")).append(isCut ? "\n" : "");
        }
        return text;
    }

    std::vector<std::string> words_;
};

/// The modifications from a position on, one for each word: "+", "-", "~" or "?" for the operation (an unknown one
/// last), "&" for bervals, the type, "=", and the values with "^" between them. Without "=" there are no values,
/// without anything there is no type.
void addTo(Mods& mods, const Words& words, std::size_t position)
{
    for (; position <= words.count(); ++position) {
        std::string_view word = words.text(position);
        constexpr std::string_view operations = "+-~?";
        const auto operation = word.empty() ? std::string_view::npos : operations.find(word.front());
        word.remove_prefix(operation == std::string_view::npos ? 0 : 1);
        const bool isBerval = !word.empty() && word.front() == '&';
        word.remove_prefix(isBerval ? 1 : 0);
        const int number = operation == std::string_view::npos ? 0 : static_cast<int>(operation);
        if (word.empty()) {
            mods.addWithoutType(number);
            continue;
        }
        const bool hasValues = word.find('=') != std::string_view::npos;
        Change change{number, std::string(takeUpTo(word, "=")), {}};
        if (hasValues) {
            change.values.emplace();
            for (bool isMore = true; isMore;) {
                isMore = word.find('^') != std::string_view::npos;
                change.values->emplace_back(takeUpTo(word, "^"));
            }
        }
        mods.add(change, isBerval ? Form::bervals : Form::texts);
    }
}

/// Runs one script in a folder.
class Script
{
public:
    Script(const TemporaryFolder& folder, std::string_view text) : folder_(folder)
    {
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            std::filesystem::remove_all(entry);
        }
        std::filesystem::create_directory(folder_.path("folder"));
        folder_.write(configName, takeUpTo(text, "%%\n"));
        calls_ = text;
    }
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script()
    {
        for (void* const handle : handles_) {
            cfg_unbind(handle);
        }
        cfg_msgfree(result_);
    }

    void run()
    {
        // Long enough for every pair of calls, short enough for many inputs a second.
        constexpr int most = 100;
        for (int count = 0; count < most && !calls_.empty(); ++count) {
            Words words(takeUpTo(calls_, "\n"));
            const auto known = std::find_if(std::begin(knownCalls), std::end(knownCalls),
                                            [&](const Call& call) { return call.name == words.name(); });
            if (known != std::end(knownCalls)) {
                const auto before = mayWrite(known->writes) ? std::nullopt : fileNow();
                (this->*known->run)(words);
                require(!before || fileNow() == before, "what may not write does not write", known->name);
            }
        }
    }

private:
    /// When a call may change the file.
    enum class Writes { never, inDirectMode, unlessNever, always };

    struct Call
    {
        std::string_view name;
        void (Script::*run)(Words&);
        Writes writes = Writes::unlessNever;
    };
    static const Call knownCalls[31];

    void* handle() const { return handles_[current_]; }

    /// What every call on a handle that resets it leaves behind.
    void settle(int code) const
    {
        require(cfg_get_errno(handle()) == (handle() == nullptr ? CFG_LDAP_PARAM_ERROR : code),
                "the handle keeps the code that was returned");
        if (handle() != nullptr && code == 0) {
            require(cfg_dump_exception(handle()) == nullptr, "a call that succeeded keeps no exception");
        }
        lookAtErrors();
    }

    void lookAtErrors() const
    {
        const char* const texts[] = {cfg_dump_exception(handle()),
                                     cfg_get_file_name(handle()),
                                     cfg_get_entry(handle()),
                                     cfg_get_attribute(handle()),
                                     cfg_get_value(handle()),
                                     cfg_err2string(cfg_get_errno(handle())),
                                     cfg_err2string(cfg_get_exterror(handle()))};
        for (const char* const text : texts) {
            read(text);
        }
        for (const char* const* value = cfg_get_enum(handle()); value != nullptr && *value != nullptr; ++value) {
            read(*value);
        }
        require(cfg_get_minimum(handle()) <= cfg_get_maximum(handle()), "a range is a range");
        require(cfg_get_file_line(handle()) >= 0, "a line is a line");
        lookAtFailures();
        cfg_perror(handle(), "fuzz");
        static_cast<void>(cfg_get_bitmask(handle()));
        static_cast<void>(cfg_get_is_single(handle()));
    }

    /// Every byte of a text, for the sanitizer.
    static void read(const char* text)
    {
        // A length that can't be, so that the look is not left out.
        require(text == nullptr || std::strlen(text) != std::string::npos, "a text ends");
    }

    /// The records of the kept exception, the first of which the older calls tell too.
    void lookAtFailures() const
    {
        const int count = cfg_failure_count(handle());
        require((count == 0) == (cfg_dump_exception(handle()) == nullptr), "an exception has a record");
        cfg_failure failure = {};
        for (int index = 0; index < count; ++index) {
            require(cfg_failure_at(handle(), index, &failure) == 0, "each record can be had");
            for (const char* const text :
                 {failure.message, failure.file, failure.dn, failure.attribute, failure.value}) {
                require(text != nullptr, "a text is empty where there is none");
                read(text);
            }
            require(index != 0 || failure.line == cfg_get_file_line(handle()), "the first record is the outermost");
        }
        for (const int index : {-1, count}) {
            require(cfg_failure_at(handle(), index, &failure) == CFG_LDAP_PARAM_ERROR, "there are no other records");
        }
    }

    int mode() const
    {
        int mode = CFG_WRITE_DIRECT;
        if (handle() != nullptr) {
            require(cfg_get_write_mode(handle(), &mode) == 0, "a handle has a mode");
        }
        return mode;
    }

    bool mayWrite(Writes writes) const
    {
        return writes == Writes::always || (writes == Writes::unlessNever && mode() != CFG_WRITE_NEVER) ||
               (writes == Writes::inDirectMode && mode() == CFG_WRITE_DIRECT);
    }

    /// The bytes of the file; none when it is none.
    std::optional<std::string> fileNow() const
    {
        const std::string path = folder_.path(configName);
        return std::filesystem::is_regular_file(path) ? std::optional(veltor::test::contentOf(path)) : std::nullopt;
    }

    /// Lets an update not wait for the other handle, which can't go on meanwhile.
    void hurry() const
    {
        if (mode() == CFG_WRITE_SAFE && !inSet_[current_] && inSet_[1 - current_] && cfg_begin_s(handle(), 0) == 0) {
            cfg_rollback_s(handle());
        }
    }

    // ---- The calls ----

    void init(Words&)
    {
        unbind();
        handles_[current_] = cfg_init();
        require(handle() != nullptr, "there is a handle");
        nameFile(configName);
    }

    void nameFile(const char* name) const
    {
        // A handle never comes to the default file, which is nobody's to play with.
        cfg_set_option(handle(), CFG_OPT_CONFIG_FILE, *name == '\0' ? name : folder_.path(name).c_str());
    }

    void file(Words& words)
    {
        constexpr const char* names[] = {configName, "missing.conf", "folder", ""};
        nameFile(words.choice(1, names));
    }

    void backup(Words& words)
    {
        constexpr const char* names[] = {"backup.conf", configName, "folder", nullptr};
        const char* const name = words.choice(1, names);
        cfg_set_option(handle(), CFG_OPT_BACKUP_FILE, name == nullptr ? nullptr : folder_.path(name).c_str());
    }

    void option(Words& words)
    {
        const int option = static_cast<int>(words.number(1));
        if (option == CFG_OPT_CONFIG_FILE || option == CFG_OPT_BACKUP_FILE) {
            char* text = nullptr;
            cfg_get_option(handle(), option, &text);
            read(text);
            cfg_memfree(text);
            return;
        }
        // NOLINTNEXTLINE(performance-no-int-to-ptr): that is the interface
        cfg_set_option(handle(), option, reinterpret_cast<const void*>(words.number(2)));
        int value = 0;
        cfg_get_option(handle(), option, &value);
    }

    void bind(Words& words)
    {
        const int method = static_cast<int>(words.count() < 3 ? long{LDAP_AUTH_SIMPLE} : words.number(3));
        settle(cfg_bind_s(handle(), words.text(1), words.text(2), method));
    }

    void unbind()
    {
        require(cfg_unbind(handle()) == (handle() == nullptr ? CFG_LDAP_PARAM_ERROR : 0), "a handle can be released");
        handles_[current_] = nullptr;
        inSet_[current_] = false;
    }

    void unbindCall(Words&) { unbind(); }
    void other(Words&) { current_ = 1 - current_; }
    void reset(Words&) { settle(cfg_reset(handle())); }

    void search(Words& words)
    {
        cfg_msgfree(std::exchange(result_, nullptr));
        std::vector<char*> attributes = words.list(4);
        const int code = cfg_search_s(handle(), words.text(1), static_cast<int>(words.number(2)), words.text(3),
                                      attributes.size() == 1 ? nullptr : attributes.data(), 0, &result_);
        require(code == 0 || result_ == nullptr, "a search that failed has no result");
        settle(code);
        walk(words);
    }

    void walk(Words&)
    {
        int left = cfg_count_entries(handle(), result_);
        for (cfg_message* entry = cfg_first_entry(handle(), result_); entry != nullptr;
             entry = cfg_next_entry(handle(), entry)) {
            --left;
            char* const dn = cfg_get_dn(handle(), entry);
            require(dn != nullptr, "an entry has a DN");
            cfg_memfree(dn);
            cfg_cursor* cursor = nullptr;
            int attributes = 0;
            for (char* name = cfg_first_attribute(handle(), entry, &cursor); name != nullptr;
                 name = cfg_next_attribute(handle(), entry, cursor)) {
                ++attributes;
                char** const values = cfg_get_values(handle(), entry, name);
                for (int index = 0; index < cfg_count_values(values); ++index) {
                    read(values[index]);
                }
                cfg_value_free(values);
                cfg_memfree(name);
            }
            cfg_ber_free(cursor);
            require(handle() == nullptr || attributes == cfg_count_attributes(handle(), entry),
                    "the attributes are as many as they are counted");
        }
        require(handle() == nullptr || left == 0, "the entries are as many as they are counted");
    }

    void add(Words& words)
    {
        hurry();
        Mods mods;
        addTo(mods, words, 2);
        settle(cfg_add_s(handle(), words.text(1), words.count() < 2 ? nullptr : mods.list()));
    }

    void modify(Words& words)
    {
        hurry();
        Mods mods;
        addTo(mods, words, 2);
        settle(cfg_modify_s(handle(), words.text(1), words.count() < 2 ? nullptr : mods.list()));
    }

    void erase(Words& words)
    {
        hurry();
        settle(cfg_delete_s(handle(), words.text(1)));
    }
    void flush(Words&) { settle(cfg_flush_s(handle())); }

    void tree(Words& words)
    {
        read(cfg_tree_view(handle(), static_cast<int>(words.number(1))));
        lookAtErrors();
    }

    // ---- The calls of administration ----

    void setMode(Words& words)
    {
        const int wanted = static_cast<int>(words.number(1));
        const int before = mode();
        const int code = cfg_set_write_mode(handle(), wanted);
        settle(code);
        require(handle() == nullptr || mode() == (code == 0 ? wanted : before), "a mode that is refused is not set");
    }

    void layout(Words& words) { settle(cfg_set_layout(handle(), static_cast<int>(words.number(1)))); }

    void begin(Words& words)
    {
        constexpr int longestWait = 2;
        const int code = cfg_begin_s(handle(), static_cast<int>(std::min(words.number(1), long{longestWait})));
        require(code != 0 || !inSet_[current_], "a set does not begin inside a set");
        inSet_[current_] = inSet_[current_] || code == 0;
        settle(code);
    }

    /// After a call that ends a set, whatever comes of it. One that is refused for its arguments does not.
    void endSet(int code)
    {
        require(code != 0 || inSet_[current_], "a set that has not begun can't end");
        inSet_[current_] = inSet_[current_] && code == CFG_LDAP_PARAM_ERROR;
        settle(code);
    }

    void commit(Words&) { endSet(cfg_commit_s(handle())); }
    void rollback(Words&) { endSet(cfg_rollback_s(handle())); }

    void install(Words& words)
    {
        const std::string text = words.lines(1);
        const int code = cfg_install_s(handle(), text.data(), text.size());
        require(code != 0 || fileNow() == text, "what is installed is the file");
        endSet(code);
    }

    void create(Words& words)
    {
        constexpr const char* names[] = {"new.conf", configName, "folder", "missing/new.conf"};
        const std::string name = words.choice(1, names);
        const std::string text = words.lines(2);
        std::error_code ignored;
        const bool existed = std::filesystem::symlink_status(folder_.path(name), ignored).type() !=
                             std::filesystem::file_type::not_found;
        const int code = cfg_create_s(handle(), folder_.path(name).c_str(), text.data(), text.size());
        require(code != 0 || (!existed && folder_.read(name) == text), "what is created is new");
        settle(code);
    }

    void readEntries(Words& words)
    {
        cfg_msgfree(std::exchange(result_, nullptr));
        const int code = cfg_read_s(handle(), words.text(1), static_cast<int>(words.number(2)), &result_);
        require(code == 0 || result_ == nullptr, "a read that failed has no result");
        settle(code);
        walk(words);
    }

    void render(Words&)
    {
        char* text = nullptr;
        std::size_t size = 1;
        const int code = cfg_render_s(handle(), &text, &size);
        require((code == 0) == (text != nullptr), "a rendering that failed has no text");
        require(text == nullptr || text[size] == '\0', "the text ends where its size says");
        settle(code);
        cfg_memfree(text);
    }

    void comment(Words& words)
    {
        char* text = nullptr;
        const int code = cfg_get_comment_s(handle(), words.text(1), words.text(2), &text);
        require((code == 0) == (text != nullptr), "a comment that can't be had is null");
        read(text);
        settle(code);
        cfg_memfree(text);
    }

    void setComment(Words& words)
    {
        hurry();
        settle(cfg_set_comment_s(handle(), words.text(1), words.text(3), words.text(2)));
    }

    void locate(Words& words)
    {
        int line = -1;
        const int code = cfg_locate_s(handle(), words.text(1), words.text(2), words.text(3), &line);
        require(line >= 0 || handle() == nullptr || code == CFG_LDAP_PARAM_ERROR, "a place is a line or nowhere");
        settle(code);
    }

    void check(Words& words)
    {
        constexpr const char* names[] = {nullptr, configName, "folder", "missing.conf"};
        const char* const name = words.choice(1, names);
        Findings findings(static_cast<std::size_t>(words.count() < 2 ? -1 : std::max(1L, words.number(2))));
        settle(
            cfg_check_s(handle(), name == nullptr ? nullptr : folder_.path(name).c_str(), Findings::take, &findings));
    }

    void types(Words& words)
    {
        const int index = static_cast<int>(words.number(1));
        cfg_attr_type type = {};
        const bool isKnown = index >= 0 && index < cfg_attr_type_count();
        require(cfg_attr_type_at(index, &type) == (isKnown ? 0 : CFG_LDAP_PARAM_ERROR), "the catalogue has its count");
        read(type.name);
        read(type.syntax);
    }

    // ---- What others do to the file ----

    /// Appends the words as lines, and makes the file newer so that the change is seen.
    void edit(Words& words)
    {
        const std::string path = folder_.path(configName);
        const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0) {
            return;
        }
        const std::string text = words.lines(1);
        static_cast<void>(!write(descriptor, text.data(), text.size()));
        struct stat status = {};
        fstat(descriptor, &status);
        const struct timespec times[2] = {status.st_atim, {status.st_mtim.tv_sec + 10, 0}};
        futimens(descriptor, times);
        close(descriptor);
    }

    /// Puts something else in the file's place.
    void replace(Words& words)
    {
        const std::string path = folder_.path(configName);
        std::filesystem::remove_all(path);
        switch (words.number(1)) {
        case 1:
            require(mkfifo(path.c_str(), 0600) == 0, "there is a fifo");
            break;
        case 2:
            std::filesystem::create_directory(path);
            break;
        case 3:
            std::filesystem::create_symlink("missing.conf", path);
            break;
        default:
            break;
        }
    }

    const TemporaryFolder& folder_;
    std::string_view calls_;
    void* handles_[2] = {};
    bool inSet_[2] = {}; // a change set has begun on the handle
    std::size_t current_ = 0;
    cfg_message* result_ = nullptr;
};

constexpr Script::Call Script::knownCalls[] = {
    {"init", &Script::init, Writes::never},
    {"file", &Script::file, Writes::never},
    {"backup", &Script::backup, Writes::never},
    {"option", &Script::option, Writes::never},
    {"bind", &Script::bind, Writes::inDirectMode},
    {"unbind", &Script::unbindCall, Writes::never},
    {"other", &Script::other, Writes::never},
    {"reset", &Script::reset, Writes::never},
    {"search", &Script::search, Writes::inDirectMode},
    {"walk", &Script::walk, Writes::never},
    {"add", &Script::add},
    {"modify", &Script::modify},
    {"delete", &Script::erase},
    {"flush", &Script::flush, Writes::inDirectMode},
    {"tree", &Script::tree, Writes::inDirectMode},
    {"edit", &Script::edit, Writes::always},
    {"replace", &Script::replace, Writes::always},
    {"mode", &Script::setMode, Writes::never},
    {"layout", &Script::layout, Writes::never},
    {"begin", &Script::begin, Writes::never},
    {"commit", &Script::commit},
    {"rollback", &Script::rollback, Writes::never},
    {"install", &Script::install},
    {"create", &Script::create, Writes::always},
    {"read", &Script::readEntries, Writes::inDirectMode},
    {"render", &Script::render, Writes::inDirectMode},
    {"comment", &Script::comment, Writes::inDirectMode},
    {"setcomment", &Script::setComment},
    {"locate", &Script::locate, Writes::inDirectMode},
    {"check", &Script::check, Writes::never},
    {"types", &Script::types, Writes::never},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    // What cfg_init takes the locale from.
    setenv("LC_ALL", "C.UTF-8", 1);
    useLocale("C.UTF-8");
    Script(folder, textOf(data, size)).run();
    return 0;
}
