#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "backend/Worker.h"
#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"
#include "service/ItemEventProtocol.h"
#include "tests/backend/ActionFixture.h"

namespace Nimra {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::chrono::seconds Patience(20);
constexpr unsigned long MiB = 1024UL * 1024;

enum Kind : unsigned { Create = 2, Move = 4, Remove = 5, Rename = 6, Streams = 10, Save = 13 };

/// Writes down what it is told, a line each, and keeps what came with it.
class Diary : public ItemEventProtocol {
  public:
    void pageLoaded(unsigned long id, const ItemFilter&, Page& page) override {
        note(id, "page of " + std::to_string(page.totalCount));
    }
    void finished(unsigned long id, const Document& document) override {
        documents.push_back(document);
        note(id, "finished " + document.name);
    }
    void streamsOpened(unsigned long id, const Document& document,
                       std::shared_ptr<DocumentStream> opened) override {
        stream = std::move(opened);
        note(id, "opened " + document.name);
    }
    void sessionOpened(unsigned long id, const DocumentSession& opened) override {
        session = opened;
        note(id, "session");
    }
    void failed(unsigned long id, const ServiceError& error) override {
        reasons.push_back(error.reason());
        texts.emplace_back(error.what());
        note(id, "failed");
    }
    void progress(unsigned long id, unsigned long done, unsigned long total) override {
        totals.push_back(total);
        note(id, "progress " + std::to_string(done));
    }

    std::vector<std::string> lines;
    std::vector<Document> documents;
    std::vector<Reason> reasons;
    std::vector<std::string> texts;
    std::vector<unsigned long> totals;
    std::shared_ptr<DocumentStream> stream;
    DocumentSession session;
    std::function<void(const std::string&)> also;

  private:
    void note(unsigned long id, const std::string& what) {
        lines.push_back(std::to_string(id) + " " + what);
        if (also) {
            also(lines.back());
        }
    }
};

/// A point that the worker's thread reaches, and passes when it is let.
class Gate {
  public:
    void pass() {
        _entered.set_value();
        _opened.get_future().wait();
    }
    void waitUntilEntered() { _entered.get_future().wait(); }
    void open() { _opened.set_value(); }

  private:
    std::promise<void> _entered;
    std::promise<void> _opened;
};

/// Content of three bytes that stops for a gate.
class GatedSource : public ContentSource {
  public:
    explicit GatedSource(Gate& gate) : _gate(gate) {}
    unsigned long size() const override { return 3; }
    std::size_t read(char* buffer, std::size_t) override {
        if (_read == 3) {
            return 0;
        }
        if (_read == 2) {
            _gate.pass();
        }
        buffer[0] = static_cast<char>('a' + _read);
        ++_read;
        return 1;
    }

  private:
    Gate& _gate;
    int _read = 0;
};

/// Content that tells on which thread it ends.
class MortalSource : public TextSource {
  public:
    explicit MortalSource(std::thread::id& ended) : TextSource("x"), _ended(ended) {}
    ~MortalSource() override { _ended = std::this_thread::get_id(); }

  private:
    std::thread::id& _ended;
};

/// A document service that answers with whatever a function says, and else refuses.
class ScriptedDocuments : public DocumentService {
  public:
    Page load(const ItemFilter& filter) override {
        urls.push_back(filter.url);
        return {};
    }
    Document rename(const Document& document) override { return onRename(document); }
    DocumentSession openSession(unsigned long folderId, unsigned long documentId,
                                unsigned long userId) override {
        return {folderId, documentId, userId, "token"};
    }

    std::vector<std::string> urls;
    std::function<Document(const Document&)> onRename = [](const Document& asked) { return asked; };
};

/// Makes the folder it is given beforehand, whatever it is asked for.
class ScriptedStorage : public StorageService {
  public:
    Folder makeFolder(const Folder& folder) override {
        asked = folder;
        return made;
    }

    Folder asked;
    Folder made;
};

class WorkerOperationsTest : public ActionFixture {
  protected:
    static Document folderRecord(unsigned long id, unsigned long parentId,
                                 const std::string& name) {
        Document folder = record(id, parentId, name);
        folder.type = 8;
        return folder;
    }
    void queue(unsigned long id, const Document& document, unsigned kind) {
        queue(id, document, kind, &service, &diary);
    }
    void queue(unsigned long id, const Document& document, unsigned kind, DocumentService* from,
               ItemEventProtocol* to) {
        auto* operation = new FileOperation(id, document, kind, to);
        operation->setService(from);
        worker.queueOperation(operation);
    }
    void queueLoad(unsigned long id, DataService* from, const std::string& url) {
        ItemFilter filter;
        filter.url = url;
        filter.userId = 7;
        auto* operation = new DataLoaderOperation(id, filter, &diary);
        operation->setService(from);
        worker.queueOperation(operation);
    }
    /// Waits until so many operations have finished in all, and collects.
    void finish(unsigned long count) {
        ASSERT_TRUE(worker.waitForFinished(count - 1, std::chrono::steady_clock::now() + Patience));
        worker.collect();
    }
    bool readable() const {
        pollfd poll{worker.fd(), POLLIN, 0};
        return ::poll(&poll, 1, 0) == 1;
    }
    bool waitUntilReadable() const {
        pollfd poll{worker.fd(), POLLIN, 0};
        return ::poll(&poll, 1, 20'000) == 1;
    }

    Diary diary;
    ScriptedDocuments scripted;
    Worker worker;
};

TEST_F(WorkerOperationsTest, EveryKindReachesTheDiskAndIsAnswered) {
    folder.makeFolder("to");
    const unsigned long to = folderId("to");
    worker.setContent(1000, std::make_unique<TextSource>("hello"));
    queue(1, record(1000, 1, "a"), Create);
    finish(1);
    ASSERT_EQ(diary.documents.size(), 1U);
    const unsigned long a = diary.documents[0].id;
    EXPECT_NE(a, 1000U);

    queue(2, record(a, 1, "b"), Rename);
    queue(3, record(a, to, "b"), Move);
    Document metadata = record(a, to, "b");
    metadata.setKeyValue("k", {"v", false});
    queue(4, metadata, Save);
    queue(5, record(a, to, "b"), Streams);
    finish(5);
    EXPECT_EQ(content("to/b"), "hello");
    EXPECT_EQ(diary.documents.at(3).keyValues().at("k").first, "v");
    ASSERT_TRUE(diary.stream);
    EXPECT_EQ(diary.stream->size(), 5U);

    queue(6, record(a, to, ""), Remove);
    finish(6);
    EXPECT_THAT(diary.lines,
                ElementsAre("1 progress 5", "1 finished a", "2 finished b", "3 finished b",
                            "4 finished b", "5 opened b", "6 finished "));
    EXPECT_EQ(diary.documents.back().id, a);
    EXPECT_EQ(diary.documents.back().parentId, to);
    EXPECT_THAT(onDisk("to"), IsEmpty());
}

TEST_F(WorkerOperationsTest, WithoutContentACreatedDocumentIsEmpty) {
    worker.setContent(1000, std::make_unique<TextSource>("x"));
    worker.setContent(1000, nullptr);
    worker.setContent(1001, std::make_unique<TextSource>("other"));
    queue(1, record(1000, 1, "a"), Create);
    finish(1);
    EXPECT_EQ(content("a"), "");
    EXPECT_THAT(diary.lines, ElementsAre("1 finished a"));
}

TEST_F(WorkerOperationsTest, ContentServesOneCreationAndNothingElse) {
    const unsigned long other = create("other").id;
    worker.setContent(other, std::make_unique<TextSource>("x"));
    queue(1, record(other, 1, "renamed"), Rename);
    queue(2, record(other, 1, "first"), Create);
    queue(3, record(other, 1, "second"), Create);
    finish(3);
    EXPECT_EQ(content("first"), "x");
    EXPECT_EQ(content("second"), "");
}

TEST_F(WorkerOperationsTest, ContentEndsWithItsOperationOnTheCollectorsThread) {
    std::thread::id ended;
    worker.setContent(1000, std::make_unique<MortalSource>(ended));
    queue(1, record(1000, 1, "a"), Create);
    ASSERT_TRUE(worker.waitForFinished(0, std::chrono::steady_clock::now() + Patience));
    EXPECT_EQ(ended, std::thread::id());
    worker.collect();
    EXPECT_EQ(ended, std::this_thread::get_id());
}

TEST_F(WorkerOperationsTest, ACreationOfTypeEightMakesAFolder) {
    worker.setContent(1000, std::make_unique<TextSource>("never read"));
    queue(1, folderRecord(1000, 1, "f"), Create);
    finish(1);
    EXPECT_THAT(diary.lines, ElementsAre("1 finished f"));
    ASSERT_EQ(diary.documents.size(), 1U);
    const Document made = diary.documents[0];
    EXPECT_EQ(made.type, 8);
    EXPECT_EQ(made.id, folderId("f"));
    EXPECT_EQ(made.parentId, 1U);
    EXPECT_TRUE(std::filesystem::is_directory(path("f")));

    queue(2, folderRecord(1001, made.id, "inner"), Create);
    queue(3, folderRecord(1002, 1, "f"), Create);
    queue(4, record(1000, 1, "document"), Create);
    finish(4);
    EXPECT_THAT(onDisk("f"), ElementsAre("inner"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Exists));
    EXPECT_EQ(content("document"), "") << "the content was the folder's";
}

TEST_F(WorkerOperationsTest, AMadeFolderIsAnsweredAsTheServiceHasIt) {
    ScriptedStorage storage;
    storage.made = Folder(5, 6, 7, "made");
    storage.made.created = 11;
    storage.made.updated = 12;
    storage.made.deleted = 13;
    storage.made.accessLevel = 2;
    Document asked = folderRecord(1000, 20, "asked");
    asked.ownerId = 30;
    queue(1, asked, Create, &storage, &diary);
    finish(1);
    EXPECT_EQ(storage.asked.id, 1000U);
    EXPECT_EQ(storage.asked.parentId, 20U);
    EXPECT_EQ(storage.asked.ownerId, 30U);
    EXPECT_EQ(storage.asked.name, "asked");

    ASSERT_EQ(diary.documents.size(), 1U);
    const Document& answer = diary.documents[0];
    EXPECT_EQ(answer.type, 8);
    EXPECT_EQ(answer.id, 5U);
    EXPECT_EQ(answer.parentId, 6U);
    EXPECT_EQ(answer.ownerId, 7U);
    EXPECT_EQ(answer.name, "made");
    EXPECT_EQ(answer.created, 11U);
    EXPECT_EQ(answer.updated, 12U);
    EXPECT_EQ(answer.deleted, 13U);
    EXPECT_EQ(answer.aclMode, 2);
}

TEST_F(WorkerOperationsTest, AFolderIsNotMadeWithoutTheMetadataThatItWasToHave) {
    Document asked = folderRecord(1000, 1, "f");
    asked.addKeyValue("k", {"v", false});
    queue(1, asked, Create);
    finish(1);
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Refused));
    EXPECT_THAT(diary.texts, ElementsAre(HasSubstr("metadata")));
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(WorkerOperationsTest, AMadeFolderHasTheSameTypeAsARenamedOne) {
    queue(1, folderRecord(1000, 1, "f"), Create);
    finish(1);
    queue(2, record(diary.documents.at(0).id, 1, "g"), Rename);
    finish(2);
    EXPECT_EQ(diary.documents.at(0).mimeType, "inode/directory");
    EXPECT_EQ(diary.documents.at(1).mimeType, "inode/directory");
}

TEST_F(WorkerOperationsTest, OnlyAStorageServiceMakesFolders) {
    StorageService silent;
    queue(1, folderRecord(1000, 1, "f"), Create, &scripted, &diary);
    queue(2, folderRecord(1000, 1, "f"), Create, &silent, &diary);
    queue(3, folderRecord(1000, 1, "f"), Create, nullptr, &diary);
    finish(3);
    EXPECT_EQ(diary.reasons, std::vector<Reason>(3, Reason::Refused));
    EXPECT_EQ(diary.texts[0], "this service does not make folders");
    EXPECT_THAT(diary.texts[2], HasSubstr("no service"));
}

TEST_F(WorkerOperationsTest, FailuresCarryTheReason) {
    folder.writeFile("taken");
    queue(1, record(1000, 1, "taken"), Create);
    queue(2, record(99, 1, "x"), Rename);
    queue(3, record(1, 0, ""), Remove);
    finish(3);
    EXPECT_THAT(diary.lines, ElementsAre("1 failed", "2 failed", "3 failed"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Exists, Reason::NotFound, Reason::Refused));
}

TEST_F(WorkerOperationsTest, WhatAServiceThrowsFailsThatOperationAlone) {
    scripted.onRename = [](const Document& asked) -> Document {
        if (asked.id == 1) {
            throw std::runtime_error("odd");
        }
        if (asked.id == 2) {
            throw 5;
        }
        return asked;
    };
    for (unsigned long id = 1; id <= 3; ++id) {
        queue(id, record(id, 1, "n"), Rename, &scripted, &diary);
    }
    finish(3);
    EXPECT_THAT(diary.lines, ElementsAre("1 failed", "2 failed", "3 finished n"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Internal, Reason::Internal));
    EXPECT_EQ(diary.texts[0], "odd");
}

TEST_F(WorkerOperationsTest, WhatAServiceDoesNotOverrideIsRefused) {
    DocumentService plain;
    const std::vector<unsigned> kinds = {Create, Move, Remove, Rename, Streams, Save, 3, 0};
    for (unsigned long i = 0; i < kinds.size(); ++i) {
        queue(i + 1, record(1, 1, "a"), kinds[i], &plain, &diary);
    }
    finish(kinds.size());
    EXPECT_EQ(diary.reasons, std::vector<Reason>(kinds.size(), Reason::Refused));
    EXPECT_THAT(diary.texts[0], HasSubstr("does not create"));
    EXPECT_THAT(diary.texts[6], HasSubstr("kind 3"));
    expectRefusal([&] { plain.openSession(1, 2, 3); }, Reason::Refused, "session");
    expectRefusal([&] { plain.releaseSession({}); }, Reason::Refused, "session");
    StorageService storage;
    expectRefusal([&] { storage.makeFolder({}); }, Reason::Refused, "folders");
}

TEST_F(WorkerOperationsTest, NoProtocolIsNoHarm) {
    worker.setContent(1000, std::make_unique<PatternSource>(3 * MiB));
    queue(1, record(1000, 1, "a"), Create, &service, nullptr);
    queue(2, record(99, 1, "a"), Streams, &service, nullptr);
    queue(3, record(99, 1, "a"), Rename, nullptr, nullptr);
    finish(3);
    EXPECT_TRUE(isPattern(path("a"), 3 * MiB));
    EXPECT_FALSE(readable());
}

TEST_F(WorkerOperationsTest, ASessionIsAskedForByItsUrl) {
    const unsigned long a = create("a").id;
    const std::string url = "/v1/documents/1/" + std::to_string(a) + "/session";
    queueLoad(1, &service, url);
    queueLoad(2, &service, url);
    finish(2);
    EXPECT_THAT(diary.lines, ElementsAre("1 session", "2 failed"));
    EXPECT_EQ(diary.session.documentId, a);
    EXPECT_EQ(diary.session.userId, 7U);
    EXPECT_NE(diary.session.token, "");
    service.releaseSession(diary.session);
    queueLoad(3, &service, url);
    finish(3);
    EXPECT_EQ(diary.lines.back(), "3 session");
}

TEST_F(WorkerOperationsTest, ASessionThatReachesNobodyIsReleased) {
    const unsigned long a = create("a").id;
    const auto expectFree = [&] {
        DocumentSession free;
        ASSERT_NO_THROW(free = service.openSession(1, a, 8));
        service.releaseSession(free);
    };
    const auto request = [&](ItemEventProtocol* to) {
        ItemFilter filter;
        filter.url = "/v1/documents/1/" + std::to_string(a) + "/session";
        auto* operation = new DataLoaderOperation(1, filter, to);
        operation->setService(&service);
        return operation;
    };
    worker.queueOperation(request(nullptr));
    finish(1);
    expectFree();

    diary.also = [](const std::string&) { throw std::runtime_error("no"); };
    worker.queueOperation(request(&diary));
    EXPECT_THROW(finish(2), std::runtime_error);
    EXPECT_THAT(diary.lines, ElementsAre("1 session"));
    expectFree();
    diary.also = nullptr;

    {
        Worker shortLived;
        shortLived.queueOperation(request(&diary));
        ASSERT_TRUE(shortLived.waitForFinished(0, std::chrono::steady_clock::now() + Patience));
        shortLived.stop();
        expectRefusal([&] { service.openSession(1, a, 8); }, Reason::Refused, "session");
    }
    expectFree();
    EXPECT_EQ(diary.lines.size(), 1U);
}

TEST_F(WorkerOperationsTest, ASessionThatThereWasNoMemoryToTakeIsHeldAndToldAgain) {
    const unsigned long a = create("a").id;
    queueLoad(1, &service, "/v1/documents/1/" + std::to_string(a) + "/session");
    diary.also = [](const std::string&) { throw std::bad_alloc(); };
    EXPECT_THROW(finish(1), std::bad_alloc);
    diary.also = nullptr;
    expectRefusal([&] { service.openSession(1, a, 8); }, Reason::Refused, "session");
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(diary.lines, ElementsAre("1 session", "1 session"));
    EXPECT_NO_THROW(service.releaseSession(diary.session));
}

TEST_F(WorkerOperationsTest, ASessionThatThereWasNoMemoryToTakeAtTheEndIsReleased) {
    const unsigned long a = create("a").id;
    queueLoad(1, &service, "/v1/documents/1/" + std::to_string(a) + "/session");
    diary.also = [](const std::string&) { throw std::bad_alloc(); };
    worker.stop();
    EXPECT_THROW(worker.collect(), std::bad_alloc);
    EXPECT_NO_THROW(service.releaseSession(service.openSession(1, a, 8)));
}

TEST_F(WorkerOperationsTest, AnOpenedDocumentThatThereWasNoMemoryToTakeIsToldAgain) {
    queue(1, create("a"), Streams);
    diary.also = [](const std::string&) { throw std::bad_alloc(); };
    EXPECT_THROW(finish(1), std::bad_alloc);
    diary.also = nullptr;
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_NE(diary.stream, nullptr);
}

TEST_F(WorkerOperationsTest, ASessionThatIsReleasedTwiceOrWithItsServiceSilentDoesNoHarm) {
    ItemFilter filter;
    filter.url = "/v1/documents/1/2/session";
    // Its releaseSession() refuses.
    auto* operation = new DataLoaderOperation(1, filter, nullptr);
    operation->setService(&scripted);
    worker.queueOperation(operation);
    EXPECT_NO_THROW(finish(1));
}

TEST_F(WorkerOperationsTest, ContentIsTakenOverWithItsCreation) {
    Worker before;
    before.pause();
    before.setContent(1000, std::make_unique<TextSource>("hello"));
    before.setContent(1001, std::make_unique<TextSource>("stays"));
    auto* creation = new FileOperation(1, record(1000, 1, "a"), Create, &diary);
    creation->setService(&service);
    before.queueOperation(creation);
    worker.setContent(1002, std::make_unique<TextSource>("own"));
    worker.takeOver(before);
    queue(2, record(1001, 1, "b"), Create);
    queue(3, record(1002, 1, "c"), Create);
    finish(3);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 5", "1 finished a", "2 finished b",
                                         "3 progress 3", "3 finished c"));
    EXPECT_EQ(content("a"), "hello");
}

TEST_F(WorkerOperationsTest, AnyOtherUrlIsAListing) {
    const std::vector<std::string> others = {
        "",
        "/v1/documents/1/2/session/",
        "/v1/documents/1/2/sessions",
        "/v1/documents/1/2",
        "/v1/documents/1//session",
        "/v1/documents//2/session",
        "/v1/documents/01/2/session",
        "/v1/documents/1/+2/session",
        "/v1/documents/-1/2/session",
        "/v1/documents/1/2x/session",
        "/v1/documents/1/2/3/session",
        " /v1/documents/1/2/session",
        "/v2/documents/1/2/session",
        "/v1/documents/1/99999999999999999999999/session",
        std::string("/v1/documents/1/2/session\0", 26),
    };
    for (unsigned long i = 0; i < others.size(); ++i) {
        queueLoad(i + 1, &scripted, others[i]);
    }
    finish(others.size());
    EXPECT_EQ(scripted.urls, others);
    queueLoad(100, &scripted, "/v1/documents/0/18446744073709551615/session");
    finish(others.size() + 1);
    EXPECT_EQ(diary.lines.back(), "100 session");
    EXPECT_EQ(diary.session.documentId, ~0UL);
    EXPECT_EQ(diary.session.folderId, 0U);
}

TEST_F(WorkerOperationsTest, ProgressCanBeCollectedWhileTheUploadRuns) {
    Gate gate;
    worker.setContent(1000, std::make_unique<GatedSource>(gate));
    queue(1, record(1000, 1, "a"), Create);
    gate.waitUntilEntered();
    EXPECT_TRUE(waitUntilReadable());
    EXPECT_EQ(worker.collect(), 0U);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 2"));
    EXPECT_FALSE(readable());
    EXPECT_EQ(worker.collect(), 0U);
    EXPECT_EQ(diary.lines.size(), 1U);
    gate.open();
    finish(1);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 2", "1 progress 3", "1 finished a"));
    EXPECT_THAT(diary.totals, ElementsAre(3, 3));
    EXPECT_FALSE(readable());
}

TEST_F(WorkerOperationsTest, OnlyTheLatestProgressIsToldAndBeforeTheOutcome) {
    worker.setContent(1000, std::make_unique<PatternSource>(5 * MiB));
    worker.setContent(1001, std::make_unique<PatternSource>(2 * MiB, 1 * MiB));
    queue(1, record(1000, 1, "a"), Create);
    queue(2, record(1001, 1, "b"), Create);
    finish(2);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 5242880", "1 finished a", "2 progress 1048576",
                                         "2 failed"));
}

TEST_F(WorkerOperationsTest, AProtocolThatThrowsAtProgressStillGetsTheOutcome) {
    worker.setContent(1000, std::make_unique<TextSource>("x"));
    queue(1, record(1000, 1, "a"), Create);
    diary.also = [](const std::string& line) {
        if (line == "1 progress 1") {
            throw std::runtime_error("no");
        }
    };
    ASSERT_TRUE(worker.waitForFinished(0, std::chrono::steady_clock::now() + Patience));
    EXPECT_THROW(worker.collect(), std::runtime_error);
    EXPECT_TRUE(readable());
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 1", "1 finished a"));
}

TEST_F(WorkerOperationsTest, AProtocolMayCollectAtProgress) {
    worker.setContent(1000, std::make_unique<TextSource>("x"));
    queue(1, record(1000, 1, "a"), Create);
    queue(2, record(1001, 1, "b"), Create);
    diary.also = [this](const std::string&) { worker.collect(); };
    finish(2);
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 1", "1 finished a", "2 finished b"));
}

TEST_F(WorkerOperationsTest, NoOutcomeIsToldBeforeItsProgressThoughAProtocolCollects) {
    Gate gate;
    worker.setContent(1000, std::make_unique<TextSource>("x"));
    worker.setContent(1001, std::make_unique<GatedSource>(gate));
    queue(1, record(1000, 1, "a"), Create);
    queue(2, record(1001, 1, "b"), Create);
    queue(3, record(99, 1, ""), Remove);
    gate.waitUntilEntered();
    bool opened = false;
    diary.also = [&](const std::string& line) {
        if (line == "1 progress 1" && !opened) {
            opened = true;
            // What finishes now is not told by this call, which takes one outcome only.
            gate.open();
            ASSERT_TRUE(worker.waitForFinished(2, std::chrono::steady_clock::now() + Patience));
            worker.collect();
        }
    };
    worker.collect();
    worker.collect();
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 1", "1 finished a", "2 progress 3",
                                         "2 finished b", "3 failed"));
}

TEST_F(WorkerOperationsTest, ContentOfUnknownSizeIsToldInFullAtItsEnd) {
    std::vector<std::pair<unsigned long, unsigned long>> told;
    PatternSource unknown(3, 0);
    service.create(record(5, 1, "a"), &unknown, [&told](unsigned long done, unsigned long total) {
        told.emplace_back(done, total);
    });
    EXPECT_THAT(told, ElementsAre(testing::Pair(3, 0), testing::Pair(3, 3)));
}

TEST_F(WorkerOperationsTest, WhatHasNotStartedCanBeCancelled) {
    Gate gate;
    std::thread::id ended;
    worker.setContent(1000, std::make_unique<GatedSource>(gate));
    worker.setContent(1001, std::make_unique<MortalSource>(ended));
    queue(1, record(1000, 1, "a"), Create);
    queue(2, record(1001, 1, "b"), Create);
    queue(3, record(1002, 1, "c"), Create);
    gate.waitUntilEntered();
    EXPECT_FALSE(worker.cancel(1));
    EXPECT_FALSE(worker.cancel(99));
    EXPECT_TRUE(worker.cancel(2));
    EXPECT_FALSE(worker.cancel(2));
    EXPECT_EQ(worker.finishedCount(), 1U);
    EXPECT_EQ(worker.pending(), 2U);
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(diary.lines, ElementsAre("2 failed", "1 progress 2"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Refused));
    EXPECT_THAT(diary.texts, ElementsAre("cancelled before it was started"));
    EXPECT_EQ(ended, std::this_thread::get_id());
    gate.open();
    finish(3);
    EXPECT_FALSE(worker.cancel(3));
    EXPECT_THAT(onDisk(), ElementsAre("a", "c"));
}

TEST_F(WorkerOperationsTest, WhatWasQueuedNowhereCanBeCancelledToo) {
    std::thread::id ended;
    worker.pause();
    worker.setContent(1001, std::make_unique<MortalSource>(ended));
    worker.cancel(std::make_unique<FileOperation>(2, record(1001, 1, "b"), Create, &diary));
    worker.cancel(nullptr);
    EXPECT_TRUE(readable());
    EXPECT_FALSE(worker.idle());
    EXPECT_EQ(worker.finishedCount(), 1U);
    EXPECT_EQ(worker.collect(), 1U);
    EXPECT_THAT(diary.lines, ElementsAre("2 failed"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::Refused));
    EXPECT_EQ(ended, std::this_thread::get_id());
    EXPECT_TRUE(worker.idle());
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(WorkerOperationsTest, StoppingReportsEveryOperationAndCancelFindsNoneThen) {
    Gate gate;
    worker.setContent(1000, std::make_unique<GatedSource>(gate));
    worker.setContent(1001, std::make_unique<TextSource>("never read"));
    queue(1, record(1000, 1, "a"), Create);
    queue(2, record(1001, 1, "b"), Create);
    gate.waitUntilEntered();
    // Whatever is still queued when stopping begins must not start, so the gate opens later.
    std::thread opener([&gate] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        gate.open();
    });
    worker.stop();
    opener.join();
    queue(3, record(1002, 1, "c"), Rename);
    EXPECT_FALSE(worker.cancel(2));
    worker.collect();
    EXPECT_THAT(diary.lines, ElementsAre("1 progress 3", "1 finished a", "2 failed", "3 failed"));
    EXPECT_THAT(diary.reasons, ElementsAre(Reason::NotReachable, Reason::NotReachable));
}

TEST_F(WorkerOperationsTest, ManyMayQueueAndCancelAtOnceAndEachHasOneOutcome) {
    constexpr unsigned long Each = 300;
    std::atomic<unsigned long> cancelled = 0;
    std::thread canceller([&] {
        for (int sweep = 0; sweep < 20; ++sweep) {
            for (unsigned long id = 1; id <= Each; id += 3) {
                cancelled += worker.cancel(id) ? 1 : 0;
            }
        }
    });
    for (unsigned long id = 1; id <= Each; ++id) {
        queue(id, record(id, 1, "n"), Rename, &scripted, &diary);
    }
    canceller.join();
    finish(Each);
    EXPECT_EQ(diary.lines.size(), Each);
    EXPECT_EQ(diary.reasons.size(), cancelled);
    EXPECT_EQ(diary.documents.size(), Each - cancelled);
}

}  // namespace
}  // namespace Nimra
