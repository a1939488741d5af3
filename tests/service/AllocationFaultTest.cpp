#include <gtest/gtest.h>

#include <new>
#include <string>

#include "service/OperationHandler.h"
#include "tests/service/ServiceTrial.h"
#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {
namespace {

TEST(ServiceAllocationFaultTest, ACallWithoutMemoryLosesNothing) {
    tryEveryServiceFault<std::bad_alloc>([](unsigned long nth) { return AllocationFaults(nth); });
}

/// Lets the n-th allocation of a call fail; whether there was one.
template <class Call>
bool failCallAt(unsigned long nth, Call call) {
    const AllocationFaults faults(nth);
    try {
        call();
    } catch (const std::bad_alloc&) {
        EXPECT_TRUE(faults.struck());
    }
    return faults.struck();
}

// A handler that was made stays for the rest of the process, so that every attempt has a name of
// its own.
TEST(ServiceAllocationFaultTest, AHandlerThatCouldNotBeMadeIsMadeTheNextTime) {
    bool failed = true;
    for (unsigned long nth = 1; failed; ++nth) {
        const std::string name = "a handler that is made without memory, " + std::to_string(nth);
        failed = failCallAt(nth, [&name] { Nimra::OperationHandler::getHandler(name); });

        Nimra::OperationHandler* const handler = Nimra::OperationHandler::getHandler(name);
        EXPECT_NE(handler, nullptr);
        EXPECT_EQ(Nimra::OperationHandler::getHandler(name), handler);
        EXPECT_TRUE(handler->operations().empty());
    }
}

TEST(ServiceAllocationFaultTest, AHandlerThatCouldNotBeRegisteredIsNot) {
    Nimra::OperationHandler mine;
    bool failed = true;
    for (unsigned long nth = 1; failed; ++nth) {
        const std::string name = "a handler registered without memory, " + std::to_string(nth);
        failed = failCallAt(nth, [&] { Nimra::OperationHandler::registerHandler(name, &mine); });

        EXPECT_EQ(Nimra::OperationHandler::getHandler(name) == &mine, !failed);
        Nimra::OperationHandler::registerHandler(name, nullptr);
        EXPECT_NE(Nimra::OperationHandler::getHandler(name), &mine);
    }
}

}  // namespace
}  // namespace Ormek::Testing
