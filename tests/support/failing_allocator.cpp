// See the header. Nothing in here may allocate through the functions that it replaces.
#include "failing_allocator.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_set>

#define VELTOR_VISIBLE __attribute__((visibility("default")))

extern "C" {
// What the linker makes of the functions named in its --wrap options.
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);

// The linker takes references from shared libraries for references to these, and refuses hidden ones.
VELTOR_VISIBLE void* __wrap_malloc(std::size_t size);
VELTOR_VISIBLE void* __wrap_calloc(std::size_t count, std::size_t size);
VELTOR_VISIBLE void* __wrap_realloc(void* block, std::size_t size);
VELTOR_VISIBLE char* __wrap_strdup(const char* text);
VELTOR_VISIBLE void __wrap_free(void* block);
}

namespace veltor::test {

namespace {

thread_local FailingAllocator* current = nullptr;
thread_local bool watching = false;

/// Memory for the books themselves.
template <class Value>
struct RealAllocator
{
    using value_type = Value;

    RealAllocator() = default;
    template <class Other>
    RealAllocator(const RealAllocator<Other>&)
    {
    }

    Value* allocate(std::size_t count)
    {
        void* const block = __real_malloc(count * sizeof(Value));
        if (block == nullptr) {
            std::abort();
        }
        return static_cast<Value*>(block);
    }
    void deallocate(Value* block, std::size_t) { __real_free(block); }

    template <class Other>
    bool operator==(const RealAllocator<Other>&) const
    {
        return true;
    }
};

/// The watched blocks that live. Freed by any thread, so it has a lock.
class Books
{
public:
    void add(void* block)
    {
        const std::lock_guard guard(lock_);
        blocks_.insert(block);
    }
    void remove(void* block)
    {
        const std::lock_guard guard(lock_);
        if (!blocks_.empty()) {
            blocks_.erase(block);
        }
    }
    void clear()
    {
        const std::lock_guard guard(lock_);
        blocks_.clear();
    }
    std::size_t size()
    {
        const std::lock_guard guard(lock_);
        return blocks_.size();
    }

private:
    std::mutex lock_;
    std::unordered_set<void*, std::hash<void*>, std::equal_to<>, RealAllocator<void*>> blocks_;
};

/// Never destroyed: blocks are freed until the very end of the program.
Books& books()
{
    alignas(Books) static unsigned char place[sizeof(Books)];
    static Books* const made = new (place) Books;
    return *made;
}

void* noted(void* block)
{
    if (block != nullptr && watching) {
        books().add(block);
    }
    return block;
}

void release(void* block)
{
    if (block != nullptr) {
        books().remove(block);
    }
    __real_free(block);
}

} // namespace

bool grants(Request request)
{
    if (current == nullptr) {
        return true;
    }
    FailingAllocator& allocator = *current;
    ++allocator.requests_;
    const bool fails = (allocator.shortage_ == Shortage::once && allocator.requests_ == allocator.nth_) ||
                       (allocator.shortage_ == Shortage::twice &&
                        (allocator.requests_ == allocator.nth_ || allocator.requests_ == allocator.nth_ + 1)) ||
                       (allocator.shortage_ == Shortage::lasting && allocator.requests_ >= allocator.nth_);
    if (fails && !allocator.failed_) {
        allocator.failed_ = true;
        allocator.firstFailure_ = request;
    }
    return !fails;
}

const char* nameOf(Request request)
{
    switch (request) {
    case Request::operatorNew:
        return "operator new";
    case Request::malloc:
        return "malloc";
    case Request::calloc:
        return "calloc";
    case Request::realloc:
        return "realloc";
    case Request::strdup:
        return "strdup";
    }
    return "?";
}

FailingAllocator::FailingAllocator(Shortage shortage, std::size_t nth) : shortage_(shortage), nth_(nth)
{
    current = this;
}

FailingAllocator::~FailingAllocator()
{
    stop();
}

void FailingAllocator::stop()
{
    if (current == this) {
        current = nullptr;
    }
}

BlockWatch::BlockWatch()
{
    books().clear();
    watching = true;
}

BlockWatch::~BlockWatch()
{
    watching = false;
}

std::size_t BlockWatch::live() const
{
    return books().size();
}

} // namespace veltor::test

using veltor::test::grants;
using veltor::test::noted;
using veltor::test::release;
using veltor::test::Request;

void* __wrap_malloc(std::size_t size)
{
    return grants(Request::malloc) ? noted(__real_malloc(size)) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return grants(Request::calloc) ? noted(__real_calloc(count, size)) : nullptr;
}

void* __wrap_realloc(void* block, std::size_t size)
{
    if (!grants(Request::realloc)) {
        return nullptr;
    }
    if (block != nullptr) {
        veltor::test::books().remove(block);
    }
    return noted(__real_realloc(block, size));
}

char* __wrap_strdup(const char* text)
{
    if (!grants(Request::strdup)) {
        return nullptr;
    }
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = noted(__real_malloc(size));
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}

void __wrap_free(void* block)
{
    release(block);
}

// Every form but the aligned ones, which the library does not use: a sanitizer brings its own for those left out.

VELTOR_VISIBLE void* operator new(std::size_t size)
{
    void* const block = operator new(size, std::nothrow);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

VELTOR_VISIBLE void* operator new[](std::size_t size)
{
    return operator new(size);
}

VELTOR_VISIBLE void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return grants(Request::operatorNew) ? noted(__real_malloc(size == 0 ? 1 : size)) : nullptr;
}

VELTOR_VISIBLE void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

VELTOR_VISIBLE void operator delete(void* block) noexcept
{
    release(block);
}

VELTOR_VISIBLE void operator delete[](void* block) noexcept
{
    release(block);
}

VELTOR_VISIBLE void operator delete(void* block, std::size_t) noexcept
{
    release(block);
}

VELTOR_VISIBLE void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}

VELTOR_VISIBLE void operator delete(void* block, const std::nothrow_t&) noexcept
{
    release(block);
}

VELTOR_VISIBLE void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    release(block);
}
