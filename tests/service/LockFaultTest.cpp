#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <system_error>

#include "service/OperationHandler.h"
#include "service/QueuedOperationsManager.h"
#include "tests/service/ServiceTrial.h"
#include "tests/support/LockFaults.h"

namespace Ormek::Testing {
namespace {

class ServiceLockTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!LockFaults::arePossible()) {
            GTEST_SKIP() << "the thread sanitizer has to see every lock itself";
        }
    }
};

TEST_F(ServiceLockTest, ThatFailsLosesNothing) {
    tryEveryServiceFault<std::system_error>(
        [](unsigned long nth) { return LockFaults(nth, EAGAIN); });
}

TEST_F(ServiceLockTest, IsTakenByEveryCallThatTouchesWhatThreadsShare) {
    for (const ServiceOperation& operation : serviceOperations()) {
        SCOPED_TRACE(operation.name);
        ServiceWorld world;
        const std::string name = operation.name;
        const bool sharesNothing =
            name == "createId" || name.find("idKnown, no ") == 0 || name == "userKnown, nobody";
        const LockFaults first(1, EAGAIN);
        if (sharesNothing) {
            EXPECT_NO_THROW(operation.act(world));
        } else {
            EXPECT_THROW(operation.act(world), std::system_error);
        }
        EXPECT_EQ(first.struck(), !sharesNothing);
    }
}

TEST_F(ServiceLockTest, IsTakenByEveryQuestion) {
    const Nimra::OperationHandler handler;
    const QueuedOperationsManager parked;
    const std::function<void()> questions[] = {
        [&] { handler.operations(); }, [&] { parked.size(); },      [&] { parked.operations(); },
        [&] { parked.waiting(); },     [&] { parked.serverId(1); }, [&] { parked.names({1}); }};
    for (const auto& ask : questions) {
        const LockFaults faults(1, EAGAIN);
        EXPECT_THROW(ask(), std::system_error);
    }
}

TEST_F(ServiceLockTest, OfTheRegistryThatFailsChangesNoHandler) {
    const std::string name = "a handler behind a lock";
    Nimra::OperationHandler mine;
    {
        const LockFaults faults(1, EINVAL);
        EXPECT_THROW(Nimra::OperationHandler::registerHandler(name, &mine), std::system_error);
    }
    {
        const LockFaults faults(1, EINVAL);
        EXPECT_THROW(Nimra::OperationHandler::getHandler(name), std::system_error);
    }
    EXPECT_NE(Nimra::OperationHandler::getHandler(name), &mine);
}

}  // namespace
}  // namespace Ormek::Testing
