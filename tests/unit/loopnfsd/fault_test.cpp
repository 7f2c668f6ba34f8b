// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <set>

#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/faults/fault_spec.h"
#include "tools/loopnfsd/faults/faults.h"

namespace {

using loopnfsd::Fault;
using loopnfsd::FaultKind;
using loopnfsd::Faults;
using loopnfsd::NfsStatus;

Fault parsed(std::string_view text) {
    Fault fault;
    EXPECT_EQ(loopnfsd::parse_fault(text, fault), "") << text;
    return fault;
}

const loopnfsd::ProcedureRow *procedure(std::string_view name) {
    const auto *row = loopnfsd::find_procedure(name);
    EXPECT_NE(row, nullptr) << name;
    return row;
}

TEST(FaultSpec, RowsStandInTheOrderOfTheirKindsUnderNamesOfTheirOwn) {
    std::set<std::string_view> names;
    for (std::size_t i = 0; i < loopnfsd::kFaultKinds; ++i) {
        EXPECT_EQ(static_cast<std::size_t>(loopnfsd::fault_rows()[i].kind), i);
        EXPECT_TRUE(names.insert(loopnfsd::fault_rows()[i].name).second);
    }
}

TEST(FaultSpec, NumbersMayHaveAUnit) {
    EXPECT_EQ(parsed("rate=50M").number, uint64_t{50} << 20);
    EXPECT_EQ(parsed("rate=16777215T").number, uint64_t{16777215} << 40);
    EXPECT_EQ(parsed("short-read=1").number, 1U);
    EXPECT_EQ(parsed("reorder").number, 4U);
    EXPECT_EQ(parsed("reorder=7").number, 7U);
}

TEST(FaultSpec, ACallIsCountedFromOne) {
    const Fault fault = parsed("drop-reply=create:3");
    EXPECT_EQ(fault.procedure, procedure("CREATE"));
    EXPECT_EQ(fault.skip, 2U);
    EXPECT_EQ(fault.count, 1U);
    EXPECT_EQ(parsed("rubbish=READ:1:*").count, loopnfsd::kWithoutEnd);
}

TEST(FaultSpec, AStatusNamesProcedureStatusCountAndSkip) {
    const Fault fault = parsed("status=WRITE:NOSPC:2:5@2");
    EXPECT_EQ(fault.procedure, procedure("WRITE"));
    EXPECT_EQ(fault.status, static_cast<uint32_t>(NfsStatus::nospc));
    EXPECT_EQ(fault.count, 2U);
    EXPECT_EQ(fault.skip, 5U);
    EXPECT_EQ(fault.path, 2U);
    EXPECT_EQ(parsed("status=*:IO:*").procedure, nullptr);
}

TEST(FaultSpec, WhatMakesNoSenseIsRefusedWithWordsThatNameIt) {
    for (const char *text : {"",
                             "nothing",
                             "silent=1",
                             "rate",
                             "rate=",
                             "rate=fast",
                             "rate=-1",
                             "rate=1.5",
                             "rate=1X",
                             "cut-after=:1",
                             "drop-reply=READ",
                             "drop-reply=READ:0",
                             "drop-reply=READ:x",
                             "drop-reply=CHMOD:1",
                             "drop-reply=READ:1:2:3",
                             "status=READ:IO",
                             "status=READ:FULL:1",
                             "status=NULL:IO:1",
                             "status=EXPORT:IO:1",
                             "rpc-error=READ:IO:1",
                             "silent@",
                             "silent@0",
                             "silent@x",
                             "silent@99999999999",
                             "cut-request=0",
                             "rate=18446744073709551616"}) {
        Fault fault;
        const auto problem = loopnfsd::parse_fault(text, fault);
        EXPECT_FALSE(problem.empty()) << text;
        EXPECT_NE(problem.find('"'), std::string::npos) << text;
    }
}

TEST(Faults, HitTheCallsTheyAreMeantForAndNoOthers) {
    Faults faults;
    faults.add(parsed("status=READ:JUKEBOX:2:1"));
    EXPECT_FALSE(faults.befall(procedure("READ"), 1).nfs_status);
    EXPECT_FALSE(faults.befall(procedure("WRITE"), 1).nfs_status);
    EXPECT_EQ(faults.befall(procedure("READ"), 1).nfs_status, static_cast<uint32_t>(NfsStatus::jukebox));
    EXPECT_TRUE(faults.befall(procedure("READ"), 1).nfs_status);
    EXPECT_FALSE(faults.befall(procedure("READ"), 1).nfs_status);
    EXPECT_EQ(faults.fired(FaultKind::status), 2U);
}

TEST(Faults, OfAnyProcedureSpareNullAndWhatHasNoStatus) {
    Faults faults;
    faults.add(parsed("status=*:IO:1"));
    EXPECT_FALSE(faults.befall(procedure("NULL"), 1).nfs_status);
    EXPECT_FALSE(faults.befall(procedure("EXPORT"), 1).nfs_status);
    EXPECT_TRUE(faults.befall(procedure("MNT"), 1).nfs_status);
}

TEST(Faults, OfOneAddressSpareTheOthers) {
    Faults faults;
    faults.add(parsed("silent@2"));
    faults.add(parsed("rate=5@1"));
    EXPECT_FALSE(faults.on(FaultKind::silent, 1));
    EXPECT_TRUE(faults.on(FaultKind::silent, 2));
    EXPECT_EQ(faults.number(FaultKind::rate, 1), 5U);
    EXPECT_EQ(faults.number(FaultKind::rate, 2), std::nullopt);
}

TEST(Faults, SetAgainReplaceTheirNumber) {
    Faults faults;
    faults.add(parsed("rtt=5"));
    faults.add(parsed("rtt=7"));
    EXPECT_EQ(faults.number(FaultKind::rtt, 1), 7U);
}

TEST(Faults, AreClearedByNameOrAllTogether) {
    Faults faults;
    faults.add(parsed("silent"));
    faults.add(parsed("read-only"));
    EXPECT_FALSE(faults.clear("no-such-fault"));
    EXPECT_TRUE(faults.clear("silent"));
    EXPECT_FALSE(faults.on(FaultKind::silent, 1));
    EXPECT_TRUE(faults.on(FaultKind::read_only, 1));
    EXPECT_TRUE(faults.clear(""));
    EXPECT_FALSE(faults.on(FaultKind::read_only, 1));
}

TEST(Faults, WithACountAreUsedUp) {
    Faults faults;
    faults.add(parsed("cut-after=10:2"));
    EXPECT_TRUE(faults.use_up(FaultKind::cut_after, 1));
    EXPECT_TRUE(faults.use_up(FaultKind::cut_after, 1));
    EXPECT_FALSE(faults.use_up(FaultKind::cut_after, 1));
    EXPECT_EQ(faults.number(FaultKind::cut_after, 1), std::nullopt);
}

TEST(Faults, MakeTheSameRubbishFromTheSameSeed) {
    EXPECT_EQ(Faults(3).rubbish(), Faults(3).rubbish());
    EXPECT_NE(Faults(3).rubbish(), Faults(4).rubbish());
}

}  // namespace
