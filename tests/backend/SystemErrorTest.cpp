#include "backend/SystemError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace Nimra {
namespace {

TEST(SystemErrorTest, ErrorNumbersHaveReasons) {
    const std::vector<std::pair<Reason, std::vector<int>>> table = {
        {Reason::NotFound, {ENOENT, ENOTDIR, EISDIR, ESTALE}},
        {Reason::Exists, {EEXIST, ENOTEMPTY}},
        {Reason::NoPermission, {EACCES, EPERM, EROFS}},
        {Reason::NoSpace, {ENOSPC, EDQUOT, EFBIG}},
        {Reason::Refused, {ELOOP, EXDEV, EBUSY, ENAMETOOLONG, EILSEQ, ETXTBSY, EMLINK, ENOTSUP}},
        {Reason::NotReachable,
         {ENOTCONN, ETIMEDOUT, EHOSTDOWN, EHOSTUNREACH, ENETDOWN, ENETUNREACH, ECONNABORTED,
          ECONNREFUSED, ECONNRESET, ENOLINK, ENODEV, ENXIO, ENOMEDIUM}},
        {Reason::Internal, {EIO, EMFILE, ENFILE, ENOMEM, EINVAL, ENOSYS, EBADF}},
    };
    for (const auto& [reason, errors] : table) {
        for (const int error : errors) {
            EXPECT_EQ(reasonOf(error), reason) << error;
        }
    }
}

TEST(SystemErrorTest, ANameThatAFileSystemDoesNotTakeIsRefused) {
    const ServiceError error = namingError(EINVAL, "cannot create 'a:'");
    EXPECT_EQ(error.reason(), Reason::Refused);
    EXPECT_STREQ(error.what(), "cannot create 'a:': its file system refuses it");
    EXPECT_EQ(namingError(ENOSYS, "").reason(), Reason::Refused);
    EXPECT_EQ(namingError(EEXIST, "").reason(), Reason::Exists);
}

TEST(SystemErrorTest, TheTextSaysWhatAndWhy) {
    const ServiceError error = systemError(ENOSPC, "cannot write 'a'");
    EXPECT_EQ(error.reason(), Reason::NoSpace);
    EXPECT_STREQ(error.what(), "cannot write 'a': No space left on device");
}

TEST(SystemErrorTest, NamesAreQuotedAsInC) {
    EXPECT_EQ(quotedName(""), "''");
    EXPECT_EQ(quotedName("a b"), "'a b'");
    EXPECT_EQ(quotedName("\a\b\t\n\v\f\r"), "'\\a\\b\\t\\n\\v\\f\\r'");
    EXPECT_EQ(quotedName("it's \\"), "'it\\'s \\\\'");
    EXPECT_EQ(quotedName(std::string("\0\x1b\x7f", 3)), "'\\000\\033\\177'");
    EXPECT_EQ(quotedName("\xc3\xa4\xf0\x9f\x98\x80"), "'\xc3\xa4\xf0\x9f\x98\x80'");
    EXPECT_EQ(quotedName("\xc2\x85"), "'\\302\\205'") << "a control character beyond ASCII";
    EXPECT_EQ(quotedName("\xff\xc3"), "'\\377\\303'");
    EXPECT_EQ(quotedName("\xed\xa0\x80"), "'\\355\\240\\200'") << "a surrogate";
}

}  // namespace
}  // namespace Nimra
