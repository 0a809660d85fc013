// SPDX-License-Identifier: Apache-2.0
// The sequences of an interface: hidl_vec of any length, hidl_array of a fixed one.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include <hidl/HidlInternal.h>

namespace android {
namespace hardware {

/**
 * A contiguous sequence in the layout in which it travels. It owns its elements, except after
 * setToExternal(). Access isn't checked against the size; 2^32 elements or more are fatal.
 */
template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    hidl_vec() { static_assert(offsetof(hidl_vec<T>, mBuffer) == kOffsetOfBuffer, "layout"); }
    ~hidl_vec() { freeBuffer(); }

    hidl_vec(const hidl_vec& other) : hidl_vec(other.begin(), other.end()) {}
    hidl_vec(hidl_vec&& other) noexcept { moveFrom(other); }
    hidl_vec(std::initializer_list<T> list) : hidl_vec(list.begin(), list.end()) {}
    hidl_vec(const std::vector<T>& other) : hidl_vec(other.begin(), other.end()) {}  // NOLINT
    explicit hidl_vec(size_t size) { resize(size); }

    template <typename InputIterator,
              typename = typename std::enable_if<std::is_convertible<
                      typename std::iterator_traits<InputIterator>::iterator_category,
                      std::input_iterator_tag>::value>::type>
    hidl_vec(InputIterator first, InputIterator last) {
        allocate(static_cast<size_t>(std::distance(first, last)));
        std::copy(first, last, begin());
    }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            hidl_vec copy(other);
            swapWith(copy);
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            freeBuffer();
            moveFrom(other);
        }
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }  // NOLINT

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    size_t size() const { return mSize; }

    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }

    iterator begin() { return data(); }
    iterator end() { return data() + mSize; }
    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + mSize; }

    bool operator==(const hidl_vec& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

    /** Keeps the elements that still fit; the new ones are value-initialised. */
    void resize(size_t size) {
        hidl_vec resized;
        resized.allocate(size);
        std::copy(begin(), begin() + std::min<size_t>(size, mSize), resized.begin());
        swapWith(resized);
    }

    /** Drops its elements and uses those at data; with shouldOwn it will delete them (delete[]). */
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        checkSize(size);
        freeBuffer();
        mBuffer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }

    /** Gives its elements away, or a copy of borrowed ones; the caller deletes them (delete[]). */
    T* releaseData() {
        if (!mOwnsBuffer && mBuffer != nullptr) resize(mSize);
        mOwnsBuffer = false;
        return mBuffer;
    }

    /** Where the pointer to the elements is in the message. */
    static constexpr size_t kOffsetOfBuffer = 0;

  private:
    static void checkSize(size_t size) {
        if (size > std::numeric_limits<uint32_t>::max()) {
            details::logAlwaysFatal("hidl_vec can't hold 2^32 elements or more.");
        }
    }

    void allocate(size_t size) {
        checkSize(size);
        if (size == 0) return;
        mBuffer = new T[size]();
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }

    void freeBuffer() {
        if (mOwnsBuffer) delete[] static_cast<T*>(mBuffer);
        mBuffer = nullptr;
        mSize = 0;
        mOwnsBuffer = false;
    }

    void moveFrom(hidl_vec& other) {
        mBuffer = other.mBuffer;
        mSize = std::exchange(other.mSize, 0);
        mOwnsBuffer = std::exchange(other.mOwnsBuffer, false);
        other.mBuffer = nullptr;
    }

    void swapWith(hidl_vec& other) {
        std::swap(mBuffer, other.mBuffer);
        std::swap(mSize, other.mSize);
        std::swap(mOwnsBuffer, other.mOwnsBuffer);
    }

    details::hidl_pointer<T> mBuffer;
    uint32_t mSize = 0;
    bool mOwnsBuffer = false;
    [[maybe_unused]] uint8_t mPad[3] = {};  // sent along, so never garbage
};

/** N elements and nothing else, all of them value-initialised unless given. */
template <typename T, size_t N>
struct hidl_array {
    hidl_array() = default;
    /** Copies N elements. */
    hidl_array(const T* source) { std::copy_n(source, N, mBuffer); }  // NOLINT
    hidl_array(const std::array<T, N>& source) {
        std::copy_n(source.data(), N, mBuffer);
    }  // NOLINT

    hidl_array& operator=(const std::array<T, N>& source) {
        std::copy_n(source.data(), N, mBuffer);
        return *this;
    }
    operator std::array<T, N>() const {  // NOLINT: meant to convert
        std::array<T, N> result;
        std::copy_n(mBuffer, N, result.data());
        return result;
    }

    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    static constexpr size_t size() { return N; }

    T& operator[](size_t index) { return mBuffer[index]; }
    const T& operator[](size_t index) const { return mBuffer[index]; }

    bool operator==(const hidl_array& other) const {
        return std::equal(mBuffer, mBuffer + N, other.mBuffer);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

  private:
    T mBuffer[N] = {};
};

}  // namespace hardware
}  // namespace android
