#pragma once

#include <utility>
#include <variant>

namespace sayvo {

// A value or a typed error. Errors in Sayvo are enums with a description; they travel
// back to the caller as values and are turned into user-visible state at the boundary.
template <typename T, typename E> class Expected
{
public:
    Expected(T value) : m_storage(std::in_place_index<0>, std::move(value)) { }
    static Expected failure(E error) { return Expected(std::in_place_index<1>, std::move(error)); }

    bool hasValue() const { return m_storage.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    const T &value() const & { return std::get<0>(m_storage); }
    T &value() & { return std::get<0>(m_storage); }
    T &&value() && { return std::get<0>(std::move(m_storage)); }
    const T &operator*() const & { return value(); }
    const T *operator->() const { return &value(); }

    const E &error() const { return std::get<1>(m_storage); }

private:
    template <std::size_t I, typename V>
    Expected(std::in_place_index_t<I> index, V &&v) : m_storage(index, std::forward<V>(v))
    { }

    std::variant<T, E> m_storage;
};

// The outcome of an operation that yields nothing but may fail.
template <typename E> class Status
{
public:
    Status() = default;
    Status(E error) : m_error(error), m_failed(true) { }

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    E error() const { return m_error; }

private:
    E m_error {};
    bool m_failed = false;
};

} // namespace sayvo
