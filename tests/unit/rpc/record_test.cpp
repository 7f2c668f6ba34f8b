// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/record.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace nfstdm {
namespace {

Record read(const Record &record) {
    return read_record("[4294967295]," + record.name + " " + record_text(record));
}

std::string random_text(std::mt19937 &random) {
    static const std::vector<std::string> kPieces = {"a",   " ",       ":",   "status ", "0", "13",       ": ",   "],",
                                                     "[1]", "server ", "MNT", "begins",  "/", "\xC3\xA4", "okay", "%s"};
    std::string text = "x";  // no kind's own beginning
    for (std::size_t count = random() % 8; count > 0; --count)
        text += kPieces[random() % kPieces.size()];
    return text;
}

TEST(Record, OfEveryKindIsReadBackAsItWasWritten) {
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        const std::string text = random_text(random);
        const auto status = static_cast<uint32_t>(random() % 200 + 1);
        for (const Record &record : {
                 Record{RecordKind::note, "nfs", 0, text},
                 Record{RecordKind::begins, "tdm_create", 0, text},
                 Record{RecordKind::succeeded, "tdm_init", 0, ""},
                 Record{RecordKind::failed, "tdm_init", status, text},
                 Record{RecordKind::silence, "rpc", 0, text},
                 Record{RecordKind::grace, "rpc", 0, text},
                 Record{RecordKind::delay, "rpc", 0, text},
                 Record{RecordKind::recovery, "rpc", 0, text},
                 Record{RecordKind::configuration, "tdm_init", 0, text},
                 Record{RecordKind::capitals, "tdm_init", 0, text + std::string(kKeyInCapitals) + "mount"},
             })
            EXPECT_EQ(read(record), record) << record_text(record);
    }
}

TEST(Record, HasTheTextThatTracesShow) {
    EXPECT_EQ(record_text({RecordKind::begins, "tdm_create", 0, "/m/f"}), "begins: /m/f");
    EXPECT_EQ(record_text({RecordKind::succeeded, "tdm_create", 0, {}}), "status 0");
    EXPECT_EQ(record_text({RecordKind::failed, "tdm_create", 13, "why"}), "status 13: why");
    EXPECT_EQ(record_text({RecordKind::silence, "rpc", 0, "s"}), "server s not responding, still trying");
    EXPECT_EQ(record_text({RecordKind::grace, "rpc", 0, "s"}),
              "server s is in its grace period after a start, waiting");
    EXPECT_EQ(record_text({RecordKind::delay, "rpc", 0, "s"}),
              "server s is not ready (just started, or fetching the file), waiting");
    EXPECT_EQ(record_text({RecordKind::recovery, "rpc", 0, "s"}), "server s ok again");
}

TEST(Record, IsANoteWhenItsTextIsNearlyThatOfAnotherKind) {
    for (const char *line : {"", "x", "[1],", "[1],rpc", "[1],rpc server ok again", "[1],nfs server s ok again",
                             "[1],rpc a server s ok again", "[1],tdm_create status 13", "[1],tdm_init status 13",
                             "[1],tdm_create status 0: x", "[1],tdm_create status x: y", "[1],tdm_create status 0 ",
                             "[1],tdm_create status 99999999999: y"})
        EXPECT_EQ(read_record(line).kind, RecordKind::note) << line;
}

TEST(Record, ConcernsWhomItsReasonNames) {
    EXPECT_EQ(concern_of("/home/dbs/tslnfstab: Permission denied"), Concern::host);
    EXPECT_EQ(concern_of("/m/f: " + named_server("s") + ": READ: stale"), Concern::server);
    EXPECT_EQ(concern_of("/m: " + named_server("s") + ": " + kMountCall + ": refused"), Concern::mounting);
    EXPECT_EQ(concern_of(named_server("s") + ": export /e is not offered " + named_security("sys") + ", only krb5"),
              Concern::security);
    EXPECT_EQ(concern_of(named_server("s") + ": FSINFO: not allowed: it may want another transport_security"),
              Concern::security);
}

}  // namespace
}  // namespace nfstdm
