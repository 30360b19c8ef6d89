#pragma once

#include <atomic>

// A number, flag or pointer that several threads read and write without a lock. It is an atomic of the same size that
// can be copied, so that the entities that hold it can be copied into their lists.
template<typename T, std::memory_order LoadOrder, std::memory_order StoreOrder>
class SharedScalar
{
public:
    SharedScalar() = default;
    SharedScalar(T value) : m_value(value) {} // implicit: stands in for a plain T
    SharedScalar(const SharedScalar& other) : m_value(other.load()) {}

    SharedScalar& operator=(const SharedScalar& other)
    {
        store(other.load());
        return *this;
    }

    SharedScalar& operator=(T value)
    {
        store(value);
        return *this;
    }

    operator T() const { return load(); }
    [[nodiscard]] T load() const { return m_value.load(LoadOrder); }
    void store(T value) { m_value.store(value, StoreOrder); }
    T exchange(T value) { return m_value.exchange(value); }
    bool compareExchange(T& expected, T desired) { return m_value.compare_exchange_weak(expected, desired); }

    // Both return the new value.
    T increment() { return m_value.fetch_add(1) + 1; }
    T decrement() { return m_value.fetch_sub(1) - 1; }

private:
    std::atomic<T> m_value{};
    static_assert(std::atomic<T>::is_always_lock_free);
    static_assert(sizeof(std::atomic<T>) == sizeof(T)); // NOLINT(bugprone-sizeof-expression): also of pointers
};

// For values that stand alone: nobody concludes from one of them what another holds.
template<typename T>
using Relaxed = SharedScalar<T, std::memory_order_relaxed, std::memory_order_relaxed>;

// For values whose order against one another matters, such as a use count and the handle that it guards.
template<typename T>
using Ordered = SharedScalar<T, std::memory_order_seq_cst, std::memory_order_seq_cst>;
