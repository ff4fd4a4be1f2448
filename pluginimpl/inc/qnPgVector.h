// qn::pg::tVector: the module's growable array of trivially copyable elements.
//
// Storage comes from the allocation and release functions given as template
// arguments: palloc/pfree inside the server (so a vector that is never destroyed
// is still reclaimed with its memory context), malloc/free in the unit tests.
// The vector never raises a server error: its two failure conditions are written
// to standard output ("tSize overflow", "Out of memory") and the operation that
// failed leaves the vector in a valid state.
//
// Free of server headers on purpose: include it before postgres.h.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "qnPgVector.h must not see server headers: include it before postgres.h");
#endif

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

namespace qn::pg {

using AllocFn = void* (*)(size_t);
using FreeFn = void (*)(void*);

// Writes one diagnostic line to standard output and flushes it.
inline void reportToStdout(const char* message) {
    std::fputs(message, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

template <typename T, AllocFn Alloc, FreeFn Free>
class tVector {
    static_assert(std::is_trivially_copyable_v<T>, "elements are copied bytewise");

public:
    using tSize = uint64_t;

    // Capacity 1, size 0.
    tVector() : tVector(1) {}

    // Room for `hint` elements (1 when hint is 0: a capacity of 0 could never double).
    explicit tVector(tSize hint) : capacity_(hint ? hint : 1), size_(0), data_(allocate(capacity_)) {
        if (!data_) {
            reportToStdout("Out of memory");
            capacity_ = 0;
        }
    }

    tVector(const tVector&) = delete;
    tVector& operator=(const tVector&) = delete;

    ~tVector() { release(); }

    tSize size() const { return size_; }
    tSize capacity() const { return capacity_; }
    bool empty() const { return size_ == 0; }
    T* data() { return data_; }
    const T* data() const { return data_; }
    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }
    T& operator[](tSize i) { return data_[i]; }
    const T& operator[](tSize i) const { return data_[i]; }
    T& back() { return data_[size_ - 1]; }
    const T& back() const { return data_[size_ - 1]; }

    // Empties the vector; the buffer and capacity stay.
    void clear() { size_ = 0; }

    void push_back(const T& value) {
        if (size_ + 1 > capacity_ && !grow(size_ + 1)) return;
        data_[size_++] = value;
    }

    // Copies [first, last) after the existing elements with one memcpy.
    void append(const T* first, const T* last) {
        if (first >= last) return;
        const tSize count = static_cast<tSize>(last - first);
        if (size_ + count > capacity_ && !grow(size_ + count)) return;
        std::memcpy(data_ + size_, first, count * sizeof(T));
        size_ += count;
    }

    // Sets the size to n; new elements are left uninitialised, a shrink keeps the buffer.
    // Returns false when the vector could not grow (then it is left as the failure left it).
    bool resize(tSize n) {
        if (n > capacity_ && !grow(n)) return false;
        size_ = n;
        return true;
    }

    // Makes room for n elements without changing the size.
    bool reserve(tSize n) { return n <= capacity_ || grow(n); }

    // reserve() through Resize, a realloc-like function that keeps the contents
    // and, for a large block, the pages already written: growing a large list
    // then touches only its new part. On a null from Resize, reports "Out of
    // memory" and leaves the vector as it was.
    template <void* (*Resize)(void*, size_t)>
    bool reserveByResizing(tSize n) {
        if (n <= capacity_) return true;
        if (!data_) return grow(n);
        const tSize c = grownCapacity(n);
        if (c == 0) return false;
        T* fresh = static_cast<T*>(Resize(data_, static_cast<size_t>(c * sizeof(T))));
        if (!fresh) {
            reportToStdout("Out of memory");
            return false;
        }
        data_ = fresh;
        capacity_ = c;
        return true;
    }

    // Exchanges the contents (buffers, sizes, capacities) of two vectors.
    void swap(tVector& other) {
        const tSize c = capacity_, s = size_;
        T* d = data_;
        capacity_ = other.capacity_;
        size_ = other.size_;
        data_ = other.data_;
        other.capacity_ = c;
        other.size_ = s;
        other.data_ = d;
    }

    // Frees the buffer now; the vector is left empty with capacity 0 and grows again from 1.
    void release() {
        if (data_) Free(data_);
        data_ = nullptr;
        capacity_ = 0;
        size_ = 0;
    }

private:
    static constexpr tSize kMaxElements = SIZE_MAX / sizeof(T);

    static T* allocate(tSize count) {
        if (count > kMaxElements) return nullptr;
        return static_cast<T*>(Alloc(static_cast<size_t>(count * sizeof(T))));
    }

    // The capacity doubled until `need` fits; 0, after reporting "tSize overflow",
    // when it cannot be represented.
    tSize grownCapacity(tSize need) const {
        tSize c = capacity_ ? capacity_ : 1;
        while (need > c) {
            const tSize old = c;
            c = c + c;
            if (static_cast<int64_t>(old) < 0 || c > kMaxElements) {
                reportToStdout("tSize overflow");
                return 0;
            }
        }
        return c;
    }

    // Doubles the capacity until `need` fits, then moves the elements into a new buffer.
    // On a capacity that cannot be represented, reports "tSize overflow" and keeps the
    // vector as it was; on a failed allocation, reports "Out of memory" and drops the
    // elements (the old buffer is released, the vector is empty with capacity 0).
    bool grow(tSize need) {
        const tSize c = grownCapacity(need);
        if (c == 0) return false;
        T* fresh = allocate(c);
        if (!fresh) {
            reportToStdout("Out of memory");
            release();
            return false;
        }
        if (size_) std::memcpy(fresh, data_, size_ * sizeof(T));
        if (data_) Free(data_);
        data_ = fresh;
        capacity_ = c;
        return true;
    }

    tSize capacity_;
    tSize size_;
    T* data_;
};

}  // namespace qn::pg
