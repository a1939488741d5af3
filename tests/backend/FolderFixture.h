#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backend/FolderService.h"
#include "service/ServiceError.h"
#include "tests/support/TemporaryFolder.h"

namespace Nimra {

/// A filter for a page of a folder.
inline ItemFilter listing(unsigned long folderId, std::uint32_t offset = 0,
                          std::uint32_t count = 1000) {
    ItemFilter filter;
    filter.dataId = {folderId};
    filter.offset = offset;
    filter.count = count;
    return filter;
}

inline ItemFilter ofType(ItemFilter filter, std::int32_t type) {
    filter.dataType = type;
    return filter;
}

inline ItemFilter named(ItemFilter filter, const std::string& name) {
    filter.path = name;
    return filter;
}

/// The names of records in their order.
template <class Record>
std::vector<std::string> names(const std::vector<Record>& records) {
    std::vector<std::string> found;
    for (const auto& record : records) {
        found.push_back(record.name);
    }
    return found;
}

/// Waits until what has changed so far is old enough for a reading of it to be kept.
inline void letSettle() { std::this_thread::sleep_for(std::chrono::milliseconds(60)); }

/// The failure of a query; nothing when it succeeds.
inline std::optional<ServiceError> failureOf(FolderService& service, const ItemFilter& filter) {
    try {
        service.load(filter);
        return std::nullopt;
    } catch (const ServiceError& error) {
        return error;
    }
}

/// A temporary folder, and a service for it.
class FolderFixture : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return (folder / name).string(); }
    Page load(const ItemFilter& filter) { return service.load(filter); }
    Page look(const std::string& name, unsigned long in = 1) {
        return load(named(listing(in), name));
    }
    unsigned long folderId(const std::string& name, unsigned long in = 1) {
        return look(name, in).folders.at(0).id;
    }
    unsigned long documentId(const std::string& name, unsigned long in = 1) {
        return look(name, in).documents.at(0).id;
    }
    void expectFailure(const ItemFilter& filter, Reason reason, const std::string& part) {
        expectFailureOf(service, filter, reason, part);
    }
    static void expectFailureOf(FolderService& from, const ItemFilter& filter, Reason reason,
                                const std::string& part) {
        const auto failure = failureOf(from, filter);
        ASSERT_TRUE(failure) << "expected a failure about " << part;
        EXPECT_EQ(failure->reason(), reason) << failure->what();
        EXPECT_NE(std::string(failure->what()).find(part), std::string::npos) << failure->what();
    }

    /// Runs expectations as a user who may not pass by permissions, in a process of its own and in
    /// the temporary folder: that user may not be able to walk there.
    void withoutPrivileges(const std::function<void()>& body) const {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const uid_t nobody = 65534;
            bool dropped =
                chdir(folder.path().c_str()) == 0 && (geteuid() != 0 || seteuid(nobody) == 0);
            try {
                body();
            } catch (const std::exception& error) {
                std::cerr << "unexpected: " << error.what() << '\n';
                dropped = false;
            }
            _exit(dropped && !testing::Test::HasFailure() ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "in the child process";
    }

    Ormek::Testing::TemporaryFolder folder;
    FolderService service{folder.path().string()};
};

}  // namespace Nimra
