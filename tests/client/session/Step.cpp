#include "tests/client/session/Step.h"

#include <ostream>

namespace Ormek::Testing {

namespace {

const char* nameOf(Step::Kind kind) {
    switch (kind) {
        case Step::CreateDocument:
            return "CreateDocument";
        case Step::CreateFolder:
            return "CreateFolder";
        case Step::Rename:
            return "Rename";
        case Step::Move:
            return "Move";
        case Step::Remove:
            return "Remove";
        case Step::SaveMetaData:
            return "SaveMetaData";
        case Step::Open:
            return "Open";
        case Step::OpenSession:
            return "OpenSession";
        case Step::ReleaseSession:
            return "ReleaseSession";
        case Step::Cancel:
            return "Cancel";
        case Step::List:
            return "List";
        case Step::Tags:
            return "Tags";
        case Step::Find:
            return "Find";
        case Step::Look:
            return "Look";
        case Step::Serve:
            return "Serve";
        case Step::Collect:
            return "Collect";
        case Step::GoOffline:
            return "GoOffline";
        case Step::GoOnline:
            return "GoOnline";
        case Step::Fail:
            return "Fail";
        case Step::ChangeElsewhere:
            return "ChangeElsewhere";
        case Step::Feed:
            return "Feed";
        case Step::DropHandles:
            return "DropHandles";
        case Step::Settle:
            return "Settle";
    }
    return "?";
}

rc::Gen<Step::Kind> kinds() {
    return rc::gen::weightedElement<Step::Kind>({
        {12, Step::CreateDocument},
        {9, Step::CreateFolder},
        {12, Step::Rename},
        {12, Step::Move},
        {8, Step::Remove},
        {5, Step::SaveMetaData},
        {3, Step::Open},
        {3, Step::OpenSession},
        {2, Step::ReleaseSession},
        {4, Step::Cancel},
        {16, Step::List},
        {2, Step::Tags},
        {6, Step::Find},
        {10, Step::Look},
        {18, Step::Serve},
        {14, Step::Collect},
        {2, Step::GoOffline},
        {4, Step::GoOnline},
        {7, Step::Fail},
        {9, Step::ChangeElsewhere},
        {6, Step::Feed},
        {2, Step::DropHandles},
        {1, Step::Settle},
    });
}

rc::Gen<std::uint32_t> numbers() {
    constexpr std::uint32_t End = 1000;
    return rc::gen::inRange<std::uint32_t>(0, End);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Step& step) {
    return stream << nameOf(step.kind) << '{' << step.a << ", " << step.b << ", " << step.c << '}';
}

rc::Gen<std::vector<Step>> steps() {
    // Sizes would make the numbers of short sessions small.
    constexpr int Size = 100;
    return rc::gen::container<std::vector<Step>>(
        rc::gen::build<Step>(rc::gen::set(&Step::kind, rc::gen::resize(Size, kinds())),
                             rc::gen::set(&Step::a, rc::gen::resize(Size, numbers())),
                             rc::gen::set(&Step::b, rc::gen::resize(Size, numbers())),
                             rc::gen::set(&Step::c, rc::gen::resize(Size, numbers()))));
}

}  // namespace Ormek::Testing
