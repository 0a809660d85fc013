// SPDX-License-Identifier: Apache-2.0
// How a call ended, and what it returned.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include <hidl/HidlInternal.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

/**
 * The outcome of a call: fine, an exception that the implementation's side reported with a message,
 * or a failure to reach it at all (EX_TRANSACTION_FAILED with a status_t).
 */
class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;

    static Status ok();
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    /** OK makes a status that is ok. */
    static Status fromStatusT(status_t status);

    void setException(int32_t exceptionCode, const char* message);
    void setFromStatusT(status_t status);

    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    const char* exceptionMessage() const { return mMessage.c_str(); }
    /** Why the other side was not reached, OK if it was. */
    status_t transactionError() const;

    /** For logs. */
    std::string description() const;

  private:
    Status(int32_t exceptionCode, status_t transactionError, std::string message);

    int32_t mException = EX_NONE;
    status_t mTransactionError = OK;
    std::string mMessage;
};

std::ostream& operator<<(std::ostream& stream, const Status& status);

template <typename T>
class Return;

namespace details {

/**
 * The part of a Return that doesn't depend on its value. It insists that errors are checked:
 * destroying or overwriting one that holds an error nobody asked about is fatal. One thread at a
 * time.
 */
class return_status {
  public:
    return_status() = default;
    return_status(const Status& status) : mStatus(status) {}  // NOLINT: meant to convert
    ~return_status();

    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;

    return_status(return_status&& other) noexcept;
    return_status& operator=(return_status&& other) noexcept;

    /** Counts as asking; an error is fatal. */
    void assertOk() const;
    /** Counts as asking. */
    bool isOk() const;
    /** Whether the implementation's process has died; counts as asking only if it has. */
    bool isDeadObject() const;

    // These don't count as asking.
    bool isOkUnchecked() const { return mStatus.isOk(); }
    std::string description() const { return mStatus.description(); }

  protected:
    /** Counts as asking; an error is fatal. */
    void onValueRetrieval() const;

  private:
    template <typename T, typename U>
    friend Return<U> StatusOf(const Return<T>& other);

    void checkBeforeLoss() const;

    Status mStatus;
    mutable bool mChecked = false;
};

}  // namespace details

/** What a call returned: its value, or the error that it ended with. */
template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}                     // NOLINT: meant to convert
    Return(const Status& status) : details::return_status(status) {}  // NOLINT: meant to convert
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;

    /** Fatal if there is an error. */
    operator T() const {  // NOLINT: meant to convert
        onValueRetrieval();
        return mValue;
    }

    /** The value, or other if there is an error. */
    T withDefault(T other) { return isOk() ? mValue : other; }

  private:
    T mValue{};
};

/** An interface as the value; converts from whatever an sp<T> can be made from. */
template <typename T>
class Return<sp<T>> : public details::return_status {
  public:
    Return(T* value) : mValue(value) {}  // NOLINT: meant to convert
    template <typename U>
    Return(sp<U> value) : mValue(std::move(value)) {}  // NOLINT: meant to convert
    template <typename U>
    Return(U* value) : mValue(value) {}                               // NOLINT: meant to convert
    Return(const Status& status) : details::return_status(status) {}  // NOLINT: meant to convert
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;

    /** Fatal if there is an error. */
    operator sp<T>() const {  // NOLINT: meant to convert
        onValueRetrieval();
        return mValue;
    }

    /** The value, or other if there is an error. */
    sp<T> withDefault(sp<T> other) { return isOk() ? mValue : other; }

  private:
    sp<T> mValue;
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : details::return_status(status) {}  // NOLINT: meant to convert
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;
};

/** What a method without results returns when all went well. */
inline Return<void> Void() {
    return Return<void>();
}

namespace details {

/** The error of other as the error of a different type; other must hold one. */
template <typename T, typename U>
Return<U> StatusOf(const Return<T>& other) {
    other.mChecked = true;
    return Return<U>(other.mStatus);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
