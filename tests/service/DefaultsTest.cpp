#include <gtest/gtest.h>

#include <string>

#include "service/DocumentServiceNetwork.h"
#include "service/ItemEventProtocol.h"
#include "service/Page.h"

namespace Nimra {
namespace {

TEST(ItemEventProtocolTest, WhatIsNotOverriddenDoesNothing) {
    ItemEventProtocol protocol;
    const Document document(1, 2, 3, "document");
    EXPECT_NO_THROW(protocol.finished(1, document));
    EXPECT_NO_THROW(protocol.streamsOpened(1, document, nullptr));
    EXPECT_NO_THROW(protocol.sessionOpened(1, DocumentSession()));
    EXPECT_NO_THROW(protocol.progress(1, 2, 3));
}

TEST(PageTest, IsOfAnEmptyListingUntilItIsFilled) {
    const Page page;
    EXPECT_EQ(page.totalCount, 0U);
    EXPECT_TRUE(page.folders.empty());
    EXPECT_TRUE(page.documents.empty());
}

/// What a service that overrides nothing says to each request.
template <class Request>
std::string refusal(Request request) {
    try {
        request();
    } catch (const ServiceError& error) {
        EXPECT_EQ(error.reason(), Reason::Refused);
        return error.what();
    }
    return "nothing was thrown";
}

TEST(DocumentServiceTest, WhatIsNotOverriddenSaysWhatItDoesNot) {
    DocumentServiceNetwork service;
    const Document document(1, 2, 3, "document");
    EXPECT_EQ(refusal([&] { service.load(ItemFilter()); }), "this service does not load listings");
    EXPECT_EQ(refusal([&] { service.create(document, nullptr, {}); }),
              "this service does not create documents");
    EXPECT_EQ(refusal([&] { service.move(document); }), "this service does not move documents");
    EXPECT_EQ(refusal([&] { service.remove(document); }), "this service does not remove documents");
    EXPECT_EQ(refusal([&] { service.rename(document); }), "this service does not rename documents");
    EXPECT_EQ(refusal([&] { service.openStreams(document); }),
              "this service does not open the content of documents");
    EXPECT_EQ(refusal([&] { service.saveMetaData(document); }),
              "this service does not save metadata");
    EXPECT_EQ(refusal([&] { service.openSession(1, 2, 3); }),
              "this service does not give sessions");
    EXPECT_EQ(refusal([&] { service.releaseSession(DocumentSession()); }),
              "this service does not give sessions");
}

}  // namespace
}  // namespace Nimra
