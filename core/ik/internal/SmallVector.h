// SmallVector: a vector whose first N elements live inside the object, so the short chains IK
// solves almost always see never allocate (internal, not exported). Longer ones move to the heap.
//
// Only for trivially destructible element types; elements added by resize() are value-initialised
// like std::vector's. Not copyable: a solve builds its buffers once and keeps them in place.
//
//   SmallVector<Imath::V3d, 8> positions(n);
#pragma once

#include <cstddef>
#include <initializer_list>
#include <new>
#include <type_traits>
#include <vector>

namespace ZeltoCore {
namespace detail {

template <class T, std::size_t N>
class SmallVector {
    static_assert(std::is_trivially_destructible<T>::value, "elements are never destroyed");

public:
    SmallVector() = default;
    explicit SmallVector(std::size_t n) { resize(n); }
    SmallVector(std::initializer_list<T> values) {
        for (const T& v : values)
            push_back(v);
    }
    SmallVector(const SmallVector&) = delete;
    SmallVector& operator=(const SmallVector&) = delete;

    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* data() { return m_data; }
    const T* data() const { return m_data; }
    T& operator[](std::size_t i) { return m_data[i]; }
    const T& operator[](std::size_t i) const { return m_data[i]; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_size; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_size; }
    T& front() { return m_data[0]; }
    const T& front() const { return m_data[0]; }
    T& back() { return m_data[m_size - 1]; }
    const T& back() const { return m_data[m_size - 1]; }

    void resize(std::size_t n) {
        if (n > N && onInline()) spill();
        if (!onInline()) {
            m_heap.resize(n);
            m_data = m_heap.data();
        } else {
            for (std::size_t i = m_size; i < n; ++i)
                new (m_data + i) T();
        }
        m_size = n;
    }
    void push_back(const T& value) {
        if (m_size == N && onInline()) spill();
        if (onInline()) {
            new (m_data + m_size) T(value);
        } else {
            m_heap.push_back(value);
            m_data = m_heap.data();
        }
        ++m_size;
    }

private:
    bool onInline() const { return m_data == inlineData(); }
    const T* inlineData() const { return std::launder(reinterpret_cast<const T*>(m_storage)); }
    // The inline elements move to the heap, which takes over from here on.
    void spill() {
        m_heap.assign(m_data, m_data + m_size);
        m_data = m_heap.data();
    }

    alignas(T) unsigned char m_storage[N * sizeof(T)];
    T* m_data = reinterpret_cast<T*>(m_storage);
    std::size_t m_size = 0;
    std::vector<T> m_heap;
};

}  // namespace detail
}  // namespace ZeltoCore
