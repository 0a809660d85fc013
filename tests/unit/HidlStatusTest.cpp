// SPDX-License-Identifier: Apache-2.0
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <hidl/Status.h>
#include <utils/RefBase.h>

namespace android {
namespace hardware {
namespace {

struct Object : RefBase {};

Return<void> failed(status_t error = FAILED_TRANSACTION) {
    return Status::fromStatusT(error);
}

TEST(HidlStatusTest, IsOkUnlessSaidOtherwise) {
    EXPECT_TRUE(Status().isOk());
    EXPECT_TRUE(Status::ok().isOk());
    EXPECT_TRUE(Status::fromStatusT(OK).isOk());
    EXPECT_EQ(OK, Status::ok().transactionError());
}

TEST(HidlStatusTest, KeepsATransactionError) {
    const Status status = Status::fromStatusT(DEAD_OBJECT);
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(Status::EX_TRANSACTION_FAILED, status.exceptionCode());
    EXPECT_EQ(DEAD_OBJECT, status.transactionError());
    EXPECT_NE(std::string::npos, status.description().find("DEAD_OBJECT"));
}

TEST(HidlStatusTest, AnExceptionIsNoTransactionError) {
    const Status status = Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "bad");
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(Status::EX_ILLEGAL_ARGUMENT, status.exceptionCode());
    EXPECT_STREQ("bad", status.exceptionMessage());
    EXPECT_EQ(OK, status.transactionError());
}

TEST(HidlStatusTest, ForgetsTheFormerErrorWhenSet) {
    Status status = Status::fromExceptionCode(Status::EX_ILLEGAL_STATE, "state");
    status.setFromStatusT(BAD_VALUE);
    EXPECT_EQ(BAD_VALUE, status.transactionError());
    EXPECT_STREQ("", status.exceptionMessage());
    status.setFromStatusT(OK);
    EXPECT_TRUE(status.isOk());
    status.setException(Status::EX_SECURITY, "no");
    EXPECT_EQ(Status::EX_SECURITY, status.exceptionCode());
}

TEST(HidlStatusTest, DescribesEveryExceptionByItsName) {
    const std::pair<int32_t, const char*> names[] = {
            {Status::EX_SECURITY, "Status(EX_SECURITY): 'why'"},
            {Status::EX_BAD_PARCELABLE, "Status(EX_BAD_PARCELABLE): 'why'"},
            {Status::EX_ILLEGAL_ARGUMENT, "Status(EX_ILLEGAL_ARGUMENT): 'why'"},
            {Status::EX_NULL_POINTER, "Status(EX_NULL_POINTER): 'why'"},
            {Status::EX_ILLEGAL_STATE, "Status(EX_ILLEGAL_STATE): 'why'"},
            {Status::EX_NETWORK_MAIN_THREAD, "Status(EX_NETWORK_MAIN_THREAD): 'why'"},
            {Status::EX_UNSUPPORTED_OPERATION, "Status(EX_UNSUPPORTED_OPERATION): 'why'"},
            {Status::EX_HAS_REPLY_HEADER, "Status(EX_HAS_REPLY_HEADER): 'why'"},
            {-8, "Status(-8): 'why'"}};
    for (const auto& [exception, description] : names) {
        EXPECT_EQ(description, Status::fromExceptionCode(exception, "why").description());
    }
    EXPECT_EQ("No error", Status::ok().description());
}

TEST(HidlStatusTest, DescribesEveryTransactionErrorByItsName) {
    const std::pair<status_t, const char*> names[] = {{DEAD_OBJECT, "DEAD_OBJECT"},
                                                      {FAILED_TRANSACTION, "FAILED_TRANSACTION"},
                                                      {UNKNOWN_TRANSACTION, "UNKNOWN_TRANSACTION"},
                                                      {UNKNOWN_ERROR, "UNKNOWN_ERROR"},
                                                      {BAD_TYPE, "BAD_TYPE"},
                                                      {NOT_ENOUGH_DATA, "NOT_ENOUGH_DATA"},
                                                      {BAD_VALUE, "Invalid argument (-22)"}};
    for (const auto& [error, name] : names) {
        std::ostringstream stream;
        stream << Status::fromStatusT(error);
        EXPECT_EQ(std::string("Status(EX_TRANSACTION_FAILED): '") + name + ": '", stream.str());
    }
}

TEST(HidlStatusTest, AnExceptionOfTheTransportIsAFailedTransaction) {
    const Status status = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    EXPECT_EQ(FAILED_TRANSACTION, status.transactionError());
    EXPECT_FALSE(Status::fromExceptionCode(Status::EX_NONE).transactionError());
}

TEST(HidlStatusTest, ExceptionsHaveTheirNumbersOnTheWire) {
    EXPECT_EQ(0, Status::EX_NONE);
    EXPECT_EQ(-1, Status::EX_SECURITY);
    EXPECT_EQ(-2, Status::EX_BAD_PARCELABLE);
    EXPECT_EQ(-3, Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(-4, Status::EX_NULL_POINTER);
    EXPECT_EQ(-5, Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(-6, Status::EX_NETWORK_MAIN_THREAD);
    EXPECT_EQ(-7, Status::EX_UNSUPPORTED_OPERATION);
    EXPECT_EQ(-128, Status::EX_HAS_REPLY_HEADER);
    EXPECT_EQ(-129, Status::EX_TRANSACTION_FAILED);
}

TEST(HidlReturnTest, GivesItsValue) {
    Return<int> result = 5;
    EXPECT_TRUE(result.isOk());
    EXPECT_EQ(5, static_cast<int>(result));
    EXPECT_EQ(5, result.withDefault(7));
}

TEST(HidlReturnTest, GivesTheDefaultOnAnError) {
    Return<int> result = Status::fromStatusT(BAD_VALUE);
    EXPECT_EQ(7, result.withDefault(7));
    Return<sp<RefBase>> object = Status::fromStatusT(BAD_VALUE);
    EXPECT_EQ(nullptr, object.withDefault(nullptr));
}

TEST(HidlReturnTest, TakesWhatAnInterfaceCanBeMadeOf) {
    const sp<RefBase> object = new Object();
    const Return<sp<RefBase>> fromStrong = object;
    const Return<sp<RefBase>> fromPointer = object.get();
    const Return<sp<RefBase>> fromNull = nullptr;
    EXPECT_EQ(object, static_cast<sp<RefBase>>(fromStrong));
    EXPECT_EQ(object, static_cast<sp<RefBase>>(fromPointer));
    EXPECT_EQ(nullptr, static_cast<sp<RefBase>>(fromNull));
}

TEST(HidlReturnTest, KnowsADeadObject) {
    EXPECT_TRUE(failed(DEAD_OBJECT).isDeadObject());
    const Return<void> other = failed(FAILED_TRANSACTION);
    EXPECT_FALSE(other.isDeadObject());
    EXPECT_FALSE(other.isOk());
    EXPECT_FALSE(Void().isDeadObject());
}

TEST(HidlReturnTest, MayGoUncheckedWhenOk) {
    { const Return<void> unchecked = Void(); }
    Return<void> overwritten = Void();
    overwritten = Void();
    EXPECT_TRUE(overwritten.isOkUnchecked());
}

TEST(HidlReturnTest, CarriesItsCheckAlongWhenMoved) {
    Return<void> first = failed();
    EXPECT_FALSE(first.isOk());
    const Return<void> second(std::move(first));
    EXPECT_FALSE(second.isOkUnchecked());
}

TEST(HidlReturnTest, SurvivesAMoveToItself) {
    Return<void> result = failed(DEAD_OBJECT);
    Return<void>& alias = result;
    result = std::move(alias);
    EXPECT_TRUE(result.isDeadObject());
}

TEST(HidlReturnTest, TakesTheErrorOfAnotherTypeAndItsCheckWithIt) {
    const Return<void> first = failed(DEAD_OBJECT);
    const Return<bool> second = details::StatusOf<void, bool>(first);
    EXPECT_TRUE(second.isDeadObject());
}

TEST(HidlReturnTest, HasNothingLeftToCheckOnceMovedFrom) {
    Return<void> first = failed();
    const Return<void> second(std::move(first));
    EXPECT_FALSE(second.isOk());
}

TEST(HidlReturnDeathTest, AbortsOnAnErrorThatNobodyChecked) {
    EXPECT_EXIT({ const Return<void> unchecked = failed(); }, testing::KilledBySignal(SIGABRT),
                "Failed HIDL return status not checked");
}

TEST(HidlReturnDeathTest, AbortsOnAnUncheckedErrorOfAnyType) {
    EXPECT_DEATH({ const Return<int> unchecked = Status::fromStatusT(BAD_VALUE); }, "not checked");
    EXPECT_DEATH({ const Return<sp<RefBase>> unchecked = Status::fromStatusT(BAD_VALUE); },
                 "not checked");
    EXPECT_DEATH(
            {
                const Return<void> unchecked =
                        Status::fromExceptionCode(Status::EX_NULL_POINTER, "null");
            },
            "not checked");
}

TEST(HidlReturnDeathTest, AbortsWhenAnUncheckedErrorIsOverwritten) {
    EXPECT_DEATH(
            {
                Return<void> result = failed();
                result = Void();
            },
            "not checked");
}

TEST(HidlReturnDeathTest, TheErrorMovedStillNeedsItsCheck) {
    EXPECT_DEATH(
            {
                Return<void> first = failed();
                const Return<void> second(std::move(first));
            },
            "not checked");
}

TEST(HidlReturnDeathTest, AskingForADeadObjectChecksNoOtherError) {
    EXPECT_DEATH({ failed(FAILED_TRANSACTION).isDeadObject(); }, "not checked");
}

TEST(HidlReturnDeathTest, DescribingIsNotChecking) {
    EXPECT_DEATH({ failed().description(); }, "not checked");
    EXPECT_DEATH({ failed().isOkUnchecked(); }, "not checked");
}

TEST(HidlReturnDeathTest, AbortsWhenTheValueOfAFailedCallIsUsed) {
    EXPECT_DEATH(
            {
                const Return<int> result = Status::fromStatusT(BAD_VALUE);
                const int value = result;
                (void)value;
            },
            "Attempted to retrieve value from failed HIDL call");
}

TEST(HidlReturnDeathTest, AssertOkAbortsOnAnError) {
    EXPECT_DEATH(failed().assertOk(), "Failed HIDL return status");
    Void().assertOk();
}

}  // namespace
}  // namespace hardware
}  // namespace android
