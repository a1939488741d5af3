// The calls of a client, each with what makes it do all that it can.

#include <utility>

#include "service/LocalIds.h"
#include "tests/client/ActingFixture.h"
#include "tests/client/FaultWorld.h"

namespace Ormek::Testing {

namespace {

using W = FaultWorld;

const Nimra::KeyValues Blue{{"colour of the cover", {"a blue like no other blue", true}}};
const std::string LongName = "a name that is too long to need no memory of its own";

void asItIs(W&) {}
void off(W& w) { w.client.setOnline(false); }

// A document whose creation has not been answered yet.
void making(W& w) {
    w.service.hold();
    w.keep(w.client.createDocument(W::Root, LongName));
    w.made = w.actions.back().entryId();
}
void makingAFolder(W& w) {
    w.service.hold();
    w.keep(w.client.createFolder(W::Root, LongName));
    w.made = w.actions.back().entryId();
}
// With much that waits for it.
void makingATree(W& w) {
    makingAFolder(w);
    w.keep(w.client.createDocument(w.made, "within", std::make_unique<TextSource>("content")));
    w.keep(w.client.rename(w.made, "renamed " + LongName));
    w.keep(w.client.move(20UL, w.made));
    w.keep(w.client.list(w.made));
}

ListOptions reloaded() {
    ListOptions options;
    options.freshness = Freshness::Reload;
    return options;
}
ListOptions searching() {
    ListOptions options;
    options.search = "a";
    return options;
}

void letIn(W& w) {
    w.service.release();
    w.awaitAnswer();
}

void pollAll(W& w) {
    for (const Query& query : w.queries) {
        w.client.poll(query);
    }
    for (const Action& action : w.actions) {
        w.client.poll(action);
    }
}

// Asks, and has the answer in, but not looked for.
template <class Ask>
std::function<void(W&)> answeredBy(Ask ask) {
    return [=](W& w) {
        ask(w);
        w.awaitAnswer();
    };
}

Nimra::Document document(unsigned long id, unsigned long parentId, const std::string& name) {
    Nimra::Document record(id, parentId, 1, name);
    record._keyValues = Blue;
    return record;
}

}  // namespace

ClientCalls questions() {
    return {
        {"list, held", asItIs, [](W& w) { w.keep(w.client.list(W::Root)); }},
        {"list, to be loaded", asItIs, [](W& w) { w.keep(w.client.list(W::Texts)); }},
        {"list, another order", asItIs, [](W& w) { w.keep(w.client.list(W::Root, searching())); }},
        {"list, reload", asItIs, [](W& w) { w.keep(w.client.list(W::Root, reloaded())); }},
        {"list, no longer current", [](W& w) { w.client.onRemoteDoubt(W::Root); },
         [](W& w) { w.keep(w.client.list(W::Root)); }},
        {"list, joined",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.list(W::Texts));
         },
         [](W& w) { w.keep(w.client.list(W::Texts)); }},
        {"list, offline", off, [](W& w) { w.keep(w.client.list(W::Root)); }},
        {"list, offline and not held", off, [](W& w) { w.keep(w.client.list(W::Texts)); }},
        {"list, local", makingATree, [](W& w) { w.keep(w.client.list(w.made, searching())); }},
        {"list, unknown", asItIs, [](W& w) { w.keep(w.client.list(99)); }},
        {"tags", asItIs, [](W& w) { w.keep(w.client.tags(W::Root)); }},
        {"tags, held", [](W& w) { w.client.wait(w.client.tags(W::Root), W::Patience); },
         [](W& w) { w.keep(w.client.tags(W::Root)); }},
        {"find, held", asItIs, [](W& w) { w.keep(w.client.find("music/../music/song")); }},
        {"find, to be loaded", asItIs, [](W& w) { w.keep(w.client.find("texts/letter")); }},
        {"find, reload", asItIs, [](W& w) { w.keep(w.client.find("a", Freshness::Reload)); }},
        {"find, offline", off, [](W& w) { w.keep(w.client.find("texts/letter")); }},
        {"find, through a document", asItIs, [](W& w) { w.keep(w.client.find("a/b")); }},
        {"find, local", makingATree, [](W& w) { w.keep(w.client.find(w.made, "within")); }},
        {"item", asItIs, [](W& w) { w.client.item(20); }},
        {"pathOf", asItIs, [](W& w) { w.client.pathOf(30); }},
        {"statistics", asItIs, [](W& w) { w.client.statistics(); }},
        {"online", asItIs, [](W& w) { w.client.online(); }},
    };
}

ClientCalls undertakings() {
    return {
        {"createDocument", asItIs,
         [](W& w) {
             w.keep(w.client.createDocument(W::Root, LongName,
                                            std::make_unique<TextSource>("content"), Blue));
         },
         true, true},
        {"createDocument, waiting", makingAFolder,
         [](W& w) {
             w.keep(w.client.createDocument(w.made, LongName,
                                            std::make_unique<TextSource>("content"), Blue));
         },
         true, true},
        {"createDocument, behind others", makingATree,
         [](W& w) { w.keep(w.client.createDocument(W::Root, "one more", nullptr, Blue)); }, true,
         true},
        {"createDocument, refused", asItIs,
         [](W& w) { w.keep(w.client.createDocument(W::Root, "a/b")); }, true, true},
        {"createFolder", asItIs, [](W& w) { w.keep(w.client.createFolder("music", LongName)); },
         true, true},
        {"createFolder, waiting", makingAFolder,
         [](W& w) { w.keep(w.client.createFolder(w.made, LongName)); }, true, true},
        {"rename", asItIs, [](W& w) { w.keep(w.client.rename("a", LongName)); }, true, true},
        {"rename, waiting", making,
         [](W& w) { w.keep(w.client.rename(w.made, "another " + LongName)); }, true, true},
        {"rename, into a search", [](W& w) { w.shown(W::Root, searching()); },
         [](W& w) { w.keep(w.client.rename(21UL, "an " + LongName)); }, true, true},
        {"rename, offline", off, [](W& w) { w.keep(w.client.rename(20UL, LongName)); }, true, true},
        {"move", asItIs, [](W& w) { w.keep(w.client.move(20UL, W::Music)); }, true, true},
        {"move, waiting", makingAFolder, [](W& w) { w.keep(w.client.move(20UL, w.made)); }, true,
         true},
        {"move, of a folder", asItIs, [](W& w) { w.keep(w.client.move("music", "texts")); }, true,
         true},
        {"remove", asItIs, [](W& w) { w.keep(w.client.remove(20UL)); }, true, true},
        {"remove, waiting", making, [](W& w) { w.keep(w.client.remove(w.made)); }, true, true},
        {"saveMetaData", asItIs, [](W& w) { w.keep(w.client.saveMetaData(20UL, Blue)); }, true},
        {"saveMetaData, waiting", making, [](W& w) { w.keep(w.client.saveMetaData(w.made, Blue)); },
         true},
        {"open", asItIs, [](W& w) { w.keep(w.client.open("music/song")); }, true},
        {"open, waiting", making, [](W& w) { w.keep(w.client.open(w.made)); }, true},
        {"openSession", asItIs, [](W& w) { w.keep(w.client.openSession(20UL)); }, true, true},
        {"openSession, waiting", making, [](W& w) { w.keep(w.client.openSession(w.made)); }, true,
         true},
        {"open, unknown", asItIs, [](W& w) { w.keep(w.client.open(99UL)); }, true, true},
    };
}

ClientCalls answers() {
    const auto asked = [](auto ask) { return answeredBy(ask); };
    return {
        {"poll, listing", asked([](W& w) { w.keep(w.client.list(W::Texts)); }), pollAll},
        {"poll, listing anew",
         [](W& w) {
             w.shown(W::Root, searching());
             w.service.editDocument(20, [](auto& record) { record.name = "c"; });
             w.service.addDocument(22, W::Root, "new");
             w.service.addFolder(12, W::Root, "new folder");
             w.service.drop(21);
             w.client.collect();
             w.keep(w.client.list(W::Root, reloaded()));
             w.awaitAnswer();
         },
         pollAll, false, false, false},
        {"poll, listing under edits",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.list(W::Root, reloaded()));
             w.keep(w.client.rename(20UL, LongName));
             w.keep(w.client.remove(21UL));
             w.keep(w.client.createFolder(W::Root, "new folder"));
             w.service.releaseOne();
             w.awaitAnswer();
         },
         pollAll},
        {"poll, of documents alone", asked([](W& w) {
             ListOptions options;
             options.kind = ListKind::Documents;
             w.keep(w.client.list(W::Texts, options));
         }),
         pollAll},
        {"poll, of folders alone", asked([](W& w) {
             ListOptions options;
             options.kind = ListKind::Folders;
             w.keep(w.client.list(W::Root, options));
         }),
         pollAll},
        {"poll, tags", asked([](W& w) { w.keep(w.client.tags(W::Root)); }), pollAll},
        {"poll, tags anew",
         [](W& w) {
             w.client.wait(w.client.tags(W::Root), W::Patience);
             w.service.editTag(20, [](auto& tag) { tag.setKeyValue("colour", {LongName, false}); });
             w.client.collect();
             w.keep(w.client.tags(W::Root, reloaded()));
             w.awaitAnswer();
         },
         pollAll},
        {"poll, found", asked([](W& w) { w.keep(w.client.find("texts/letter")); }), pollAll},
        {"poll, found on the way", asked([](W& w) {
             w.service.addFolder(12, W::Texts, "deep");
             w.keep(w.client.find("texts/deep/deeper"));
         }),
         pollAll},
        {"poll, not found", asked([](W& w) { w.keep(w.client.find("texts/none")); }), pollAll},
        {"poll, found no longer",
         [](W& w) {
             w.service.drop(20);
             w.keep(w.client.find("a", Freshness::Reload));
             w.awaitAnswer();
         },
         pollAll, false, false, false},
        {"poll, failed",
         [](W& w) {
             w.service.failWith(Nimra::ServiceError(Nimra::Reason::NoPermission, LongName));
             w.keep(w.client.list(W::Texts));
             w.keep(w.client.find("texts/letter"));
             w.awaitAnswer();
             w.client.collect();
             w.service.failWith(std::nullopt);
             w.keep(w.client.find("texts/none"));
         },
         pollAll},
        {"poll, of a folder that has gone",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.list(W::Texts));
             w.service.drop(31);
             w.service.drop(W::Texts);
             w.client.onRemoteRemoval(W::Texts);
             letIn(w);
         },
         pollAll},
        {"poll, doubted",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.list(W::Root, reloaded()));
             w.client.onRemoteDoubt(W::Root);
             letIn(w);
         },
         pollAll},
        {"poll, found and doubted",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.find("texts/letter"));
             w.client.onRemoteDoubt(W::Texts);
             letIn(w);
         },
         pollAll},
        {"wait", asked([](W& w) { w.keep(w.client.list(W::Texts)); }),
         [](W& w) { w.client.wait(w.queries.back(), W::Patience); }},
        {"collect", asked([](W& w) { w.keep(w.client.list(W::Texts)); }),
         [](W& w) { w.client.collect(); }},
        {"poll, no question", asItIs, [](W& w) { w.client.poll(Query()); }},
        {"poll, no action", asItIs, [](W& w) { w.client.poll(Action()); }},
    };
}

ClientCalls outcomes() {
    const auto undertaken = [](auto act) { return answeredBy(act); };
    return {
        {"outcome, document made", undertaken([](W& w) {
             w.keep(w.client.createDocument(W::Root, LongName, nullptr, Blue));
         }),
         pollAll},
        {"outcome, document made of content", undertaken([](W& w) {
             w.keep(w.client.createDocument(W::Root, LongName,
                                            std::make_unique<TextSource>("content")));
         }),
         [](W& w) { w.client.wait(w.actions.back(), W::Patience); }},
        {"outcome, folder made with what waits for it",
         [](W& w) {
             makingATree(w);
             letIn(w);
         },
         pollAll},
        {"outcome, folder made and come by a page",
         [](W& w) {
             makingATree(w);
             w.service.addFolder(50, W::Root, LongName);
             w.client.onRemoteChange(Nimra::Folder(50, W::Root, 1, LongName));
             w.service.createAs(50);
             letIn(w);
         },
         pollAll},
        {"outcome, folder not made and what waits for it",
         [](W& w) {
             makingATree(w);
             w.service.failNext("makeFolder", Nimra::Reason::Exists);
             letIn(w);
         },
         pollAll},
        {"outcome, document not made",
         [](W& w) {
             making(w);
             w.keep(w.client.rename(w.made, "renamed " + LongName));
             w.keep(w.client.open(w.made));
             w.service.failNext("create", Nimra::Reason::NoSpace);
             letIn(w);
         },
         pollAll},
        {"outcome, renamed", undertaken([](W& w) { w.keep(w.client.rename(20UL, LongName)); }),
         pollAll},
        {"outcome, not renamed", undertaken([](W& w) {
             w.service.failNext("rename", Nimra::Reason::Exists);
             w.keep(w.client.rename(20UL, LongName));
         }),
         pollAll},
        {"outcome, not renamed the first time",
         [](W& w) {
             w.service.hold();
             w.shown(W::Music);
             w.service.failNext("rename", Nimra::Reason::NoPermission);
             w.keep(w.client.rename(20UL, "first " + LongName));
             w.keep(w.client.rename(20UL, "second " + LongName));
             w.service.releaseOne();
             w.awaitAnswer();
         },
         pollAll},
        {"outcome, moved", undertaken([](W& w) { w.keep(w.client.move(20UL, W::Music)); }),
         pollAll},
        {"outcome, not moved", undertaken([](W& w) {
             w.service.failNext("move", Nimra::Reason::NotFound);
             w.keep(w.client.move(20UL, W::Music));
         }),
         pollAll},
        {"outcome, removed", undertaken([](W& w) { w.keep(w.client.remove(20UL)); }), pollAll},
        {"outcome, not removed", undertaken([](W& w) { w.keep(w.client.remove(W::Music)); }),
         pollAll},
        {"outcome, saved", undertaken([](W& w) { w.keep(w.client.saveMetaData(20UL, Blue)); }),
         pollAll},
        {"outcome, not saved", undertaken([](W& w) {
             w.service.failNext("save", Nimra::Reason::Refused);
             w.keep(w.client.saveMetaData(20UL, Blue));
         }),
         pollAll},
        {"outcome, opened", undertaken([](W& w) { w.keep(w.client.open(20UL)); }), pollAll},
        {"outcome, session", undertaken([](W& w) { w.keep(w.client.openSession(20UL)); }), pollAll},
        {"outcome, waited for", undertaken([](W& w) { w.keep(w.client.rename(20UL, LongName)); }),
         [](W& w) { w.client.wait(w.actions.back(), W::Patience); }},
    };
}

ClientCalls remoteChanges() {
    return {
        {"onRemoteChange, renamed",
         [](W& w) {
             w.shown(W::Root, searching());
             w.service.editDocument(20, [](auto& record) { record.name = LongName; });
         },
         [](W& w) { w.client.onRemoteChange(document(20, W::Root, LongName)); }},
        {"onRemoteChange, moved",
         [](W& w) { w.service.editDocument(20, [](auto& record) { record.parentId = W::Music; }); },
         [](W& w) { w.client.onRemoteChange(document(20, W::Music, "a")); }},
        {"onRemoteChange, new", [](W& w) { w.service.addDocument(22, W::Root, LongName); },
         [](W& w) { w.client.onRemoteChange(document(22, W::Root, LongName)); }},
        {"onRemoteChange, out of sight",
         [](W& w) { w.service.editDocument(20, [](auto& record) { record.parentId = 77; }); },
         [](W& w) { w.client.onRemoteChange(document(20, 77, "a")); }},
        {"onRemoteChange, under an action",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.rename(20UL, LongName));
             w.service.editDocument(20, [](auto& record) { record.parentId = W::Music; });
         },
         [](W& w) { w.client.onRemoteChange(document(20, W::Music, "a")); }},
        {"onRemoteChange, folder new", [](W& w) { w.service.addFolder(12, W::Root, LongName); },
         [](W& w) { w.client.onRemoteChange(Nimra::Folder(12, W::Root, 1, LongName)); }},
        {"onRemoteChange, folder moved",
         [](W& w) { w.service.editFolder(W::Music, [](auto& f) { f.parentId = W::Texts; }); },
         [](W& w) { w.client.onRemoteChange(Nimra::Folder(W::Music, W::Texts, 1, "music")); }},
        {"onRemoteRemoval", [](W& w) { w.service.drop(20); },
         [](W& w) { w.client.onRemoteRemoval(20); }},
        {"onRemoteRemoval, folder",
         [](W& w) {
             w.service.drop(30);
             w.service.drop(W::Music);
         },
         [](W& w) { w.client.onRemoteRemoval(W::Music); }},
        {"onRemoteRemoval, under an action",
         [](W& w) {
             w.service.hold();
             w.keep(w.client.rename(20UL, LongName));
             w.service.drop(20);
         },
         [](W& w) { w.client.onRemoteRemoval(20); }},
        {"onRemoteDoubt", [](W& w) { w.service.addDocument(22, W::Root, LongName); },
         [](W& w) { w.client.onRemoteDoubt(W::Root); }},
    };
}

ClientCalls switches() {
    const auto subscribed = [](W& w) { w.made = w.client.subscribe([](const Event&) {}); };
    return {
        {"subscribe", asItIs, [](W& w) { w.client.subscribe([](const Event&) {}); }},
        {"unsubscribe", subscribed, [](W& w) { w.client.unsubscribe(w.made); }},
        {"setOnline, off", asItIs, off},
        {"setOnline, on",
         [](W& w) {
             off(w);
             w.keep(w.client.rename(20UL, LongName));
             w.keep(
                 w.client.createDocument(W::Root, "new", std::make_unique<TextSource>("content")));
         },
         [](W& w) { w.client.setOnline(true); }},
        {"waiting",
         [](W& w) {
             off(w);
             makingATree(w);
         },
         [](W& w) { w.client.waiting(); }},
        {"cancel, queued",
         [](W& w) {
             off(w);
             w.keep(w.client.rename(20UL, LongName));
         },
         [](W& w) { w.client.cancel(w.actions.front().operationId()); }},
        {"cancel, waiting",
         [](W& w) {
             making(w);
             w.keep(w.client.rename(w.made, "renamed " + LongName));
         },
         [](W& w) { w.client.cancel(w.actions.back().operationId()); }},
        {"cancel, with what waits for it",
         [](W& w) {
             off(w);
             makingATree(w);
         },
         [](W& w) { w.client.cancel(w.actions.front().operationId()); }},
        {"waitUntilIdle",
         [](W& w) {
             makingATree(w);
             w.service.release();
         },
         [](W& w) { w.client.waitUntilIdle(W::Patience); }},
        {"releaseSession",
         [](W& w) {
             w.keep(w.client.openSession(20UL));
             w.client.wait(w.actions.back(), W::Patience);
         },
         [](W& w) {
             w.client.releaseSession({W::Root, 20, 1, "token 20"});
         }},
        {"read", asItIs, [](W& w) { w.client.read([] {}); }},
    };
}

}  // namespace Ormek::Testing
