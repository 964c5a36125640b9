// Names that many lists have in common.
#ifndef VELTOR_SHARED_NAME_H
#define VELTOR_SHARED_NAME_H

#include "LDIF_Util.h"
#include "owner_count.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace veltor::detail {

/// What a name compares with byte by byte.
template <class Text>
concept PlainText = std::convertible_to<const Text&, std::string_view> && !std::derived_from<Text, cisString>;

/// A text that copies share until one of them is given another: a name costs 8 bytes however often it stands in a
/// store. It reads like a const std::string. Copies may live on different threads.
class SharedName
{
public:
    using value_type = char;
    using size_type = std::string::size_type;
    using const_iterator = std::string::const_iterator;
    using iterator = const_iterator;
    static constexpr size_type npos = std::string::npos;

    SharedName() noexcept = default;
    explicit SharedName(std::string_view text) : shared_(text.empty() ? nullptr : new Shared(text)) {}
    SharedName(const SharedName& other) noexcept : shared_(other.shared_)
    {
        if (shared_ != nullptr) {
            shared_->owners.add();
        }
    }
    SharedName(SharedName&& other) noexcept : shared_(std::exchange(other.shared_, nullptr)) {}
    SharedName& operator=(const SharedName& other) noexcept
    {
        SharedName copy(other);
        swap(copy);
        return *this;
    }
    SharedName& operator=(SharedName&& other) noexcept
    {
        SharedName moved(std::move(other));
        swap(moved);
        return *this;
    }
    SharedName& operator=(std::string_view text)
    {
        if (shared_ != nullptr && !text.empty() && shared_->owners.isOne()) {
            shared_->text.assign(text);
            return *this;
        }
        return *this = SharedName(text);
    }
    ~SharedName()
    {
        if (shared_ != nullptr && shared_->owners.drop()) {
            delete shared_;
        }
    }

    const std::string& str() const noexcept { return shared_ == nullptr ? empty_str : shared_->text; }
    operator const std::string&() const noexcept { return str(); }
    operator std::string_view() const noexcept { return str(); }

    // ---- What std::string gives to read ----

    [[nodiscard]] bool empty() const noexcept { return shared_ == nullptr; }
    size_type size() const noexcept { return str().size(); }
    size_type length() const noexcept { return str().size(); }
    const char* c_str() const noexcept { return str().c_str(); }
    const char* data() const noexcept { return str().data(); }
    const_iterator begin() const noexcept { return str().begin(); }
    const_iterator end() const noexcept { return str().end(); }
    const_iterator cbegin() const noexcept { return str().begin(); }
    const_iterator cend() const noexcept { return str().end(); }
    const char& operator[](size_type position) const { return str()[position]; }
    const char& at(size_type position) const { return str().at(position); }
    const char& front() const { return str().front(); }
    const char& back() const { return str().back(); }
    std::string substr(size_type position = 0, size_type count = npos) const { return str().substr(position, count); }
    template <class... Arguments>
    int compare(Arguments&&... arguments) const
    {
        return str().compare(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    size_type find(Arguments&&... arguments) const
    {
        return str().find(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    size_type rfind(Arguments&&... arguments) const
    {
        return str().rfind(std::forward<Arguments>(arguments)...);
    }
    template <class... Arguments>
    size_type find_first_of(Arguments&&... arguments) const
    {
        return str().find_first_of(std::forward<Arguments>(arguments)...);
    }
    bool starts_with(std::string_view text) const { return str().starts_with(text); }
    bool ends_with(std::string_view text) const { return str().ends_with(text); }
    void clear() noexcept { *this = SharedName(); }
    /// There is no room to spare where a text is shared.
    void shrink_to_fit() const noexcept {}
    void swap(SharedName& other) noexcept { std::swap(shared_, other.shared_); }
    friend void swap(SharedName& left, SharedName& right) noexcept { left.swap(right); }

    // ---- Comparisons: with texts byte by byte, with a cisString as that one compares ----

    friend bool operator==(const SharedName& left, const SharedName& right)
    {
        return left.shared_ == right.shared_ || left.str() == right.str();
    }
    friend auto operator<=>(const SharedName& left, const SharedName& right) { return left.str() <=> right.str(); }
    template <PlainText Text>
    friend bool operator==(const SharedName& left, const Text& right)
    {
        return std::string_view(left.str()) == std::string_view(right);
    }
    template <PlainText Text>
    friend auto operator<=>(const SharedName& left, const Text& right)
    {
        return std::string_view(left.str()) <=> std::string_view(right);
    }
    template <std::derived_from<cisString> Text>
    friend bool operator==(const SharedName& left, const Text& right)
    {
        return right.compare(left.str()) == 0;
    }
    template <std::derived_from<cisString> Text>
    friend auto operator<=>(const SharedName& left, const Text& right)
    {
        return 0 <=> right.compare(left.str());
    }

    friend std::string operator+(const SharedName& left, const SharedName& right) { return left.str() + right.str(); }
    friend std::string operator+(const SharedName& left, std::string_view right)
    {
        return std::string(left.str()).append(right);
    }
    friend std::string operator+(std::string_view left, const SharedName& right)
    {
        return std::string(left).append(right.str());
    }
    friend std::string operator+(const SharedName& left, char right) { return left.str() + right; }
    friend std::string operator+(char left, const SharedName& right) { return left + right.str(); }
    friend std::ostream& operator<<(std::ostream& stream, const SharedName& name) { return stream << name.str(); }

private:
    struct Shared
    {
        explicit Shared(std::string_view content) : text(content) {}

        std::string text;
        OwnerCount owners;
    };

    Shared* shared_ = nullptr; // null for the empty name
};

static_assert(sizeof(SharedName) == sizeof(void*));

} // namespace veltor::detail

// ---- Members of cisString that need the name's definition ----

inline cisString::cisString(const veltor::detail::SharedName& name) : std::string(name.str()) {}

inline int cisString::compare(const veltor::detail::SharedName& other) const
{
    return compare(other.str());
}

#endif
