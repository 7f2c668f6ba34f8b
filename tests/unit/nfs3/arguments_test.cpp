// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/arguments.h"

#include <gtest/gtest.h>

#include "nfstdm/nfs3/fields.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::nfs3 {
namespace {

FileHandle handle_of(std::string_view text) {
    FileHandle handle;
    handle.size = static_cast<uint8_t>(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
        handle.bytes[i] = static_cast<uint8_t>(text[i]);
    return handle;
}

// What a writer should hold: words and texts, as RFC 1813 orders them.
class Expected {
  public:
    Expected &word(uint32_t value) {
        writer_.put_u32(value);
        return *this;
    }
    Expected &large(uint64_t value) {
        writer_.put_u64(value);
        return *this;
    }
    Expected &text(std::string_view value) {
        writer_.put_string(value);
        return *this;
    }
    void is(const xdr::Writer &written) {
        EXPECT_TRUE(written.ok());
        EXPECT_TRUE(
            std::equal(written.bytes().begin(), written.bytes().end(), writer_.bytes().begin(), writer_.bytes().end()));
    }

  private:
    xdr::Writer writer_;
};

const FileHandle kHandle = handle_of("abcde");

TEST(Arguments, OfAnObjectAreItsHandle) {
    xdr::Writer writer;
    put_object(writer, kHandle);
    Expected().text("abcde").is(writer);
}

TEST(Arguments, OfAnEntryAreDirectoryAndName) {
    xdr::Writer writer;
    put_entry(writer, kHandle, "name");
    Expected().text("abcde").text("name").is(writer);
}

TEST(Arguments, OfSetattrLeaveAloneWhatIsNotGiven) {
    xdr::Writer none;
    put_setattr(none, kHandle, {});
    Expected().text("abcde").word(0).word(0).word(0).word(0).word(0).word(0).word(0).is(none);
    xdr::Writer all;
    put_setattr(all, kHandle, {0100644, uint64_t{1} << 33});
    Expected()
        .text("abcde")
        .word(1)
        .word(0644)
        .word(0)
        .word(0)
        .word(1)
        .large(uint64_t{1} << 33)
        .word(0)
        .word(0)
        .word(0)
        .is(all);
}

TEST(Arguments, OfReadAndWrite) {
    xdr::Writer read;
    put_read(read, kHandle, 1ULL << 40, 4096);
    Expected().text("abcde").large(1ULL << 40).word(4096).is(read);
    xdr::Writer write;
    put_write(write, kHandle, 5, 10, Stability::file_sync);
    Expected().text("abcde").large(5).word(10).word(2).word(10).is(write);
}

TEST(Arguments, OfCreateAndMkdir) {
    xdr::Writer create;
    put_create(create, kHandle, "f", {0600, 0});
    Expected().text("abcde").text("f").word(0).word(1).word(0600).word(0).word(0).word(1).large(0).word(0).word(0).is(
        create);
    xdr::Writer mkdir;
    put_mkdir(mkdir, kHandle, "d", 0755);
    Expected().text("abcde").text("d").word(1).word(0755).word(0).word(0).word(0).word(0).word(0).is(mkdir);
}

TEST(Arguments, OfDirectoriesAndCommit) {
    xdr::Writer readdir;
    put_readdir(readdir, kHandle, 9, 8, 7);
    Expected().text("abcde").large(9).large(8).word(7).is(readdir);
    xdr::Writer plus;
    put_readdirplus(plus, kHandle, 9, 8, 7, 6);
    Expected().text("abcde").large(9).large(8).word(7).word(6).is(plus);
    xdr::Writer commit;
    put_commit(commit, kHandle);
    Expected().text("abcde").large(0).word(0).is(commit);
}

TEST(Arguments, RefuseHandlesAndNamesBeyondTheirMaximum) {
    xdr::Writer largest;
    put_entry(largest, handle_of(std::string(64, 'h')), std::string(kFileNameMaximum, 'n'));
    EXPECT_TRUE(largest.ok());
    xdr::Writer handle;
    put_object(handle, handle_of(std::string(65, 'h')));
    EXPECT_FALSE(handle.ok());
    xdr::Writer name;
    put_entry(name, kHandle, std::string(kFileNameMaximum + 1, 'n'));
    EXPECT_FALSE(name.ok());
}

}  // namespace
}  // namespace nfstdm::nfs3
