// SPDX-License-Identifier: Apache-2.0
// Whole runs, from the argument vector to the exit status.
#include "tslwnfs/frontend/startup.h"

#include "front_end_fixture.h"
#include "platform/banner.h"
#include "tslwnfs/terminal/screen.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kFailed = "TWNFS-65022: The command failed with status 1.\n";
const std::string kSuccess = "TWNFS-65023: The command completed successfully.\n";
constexpr char kMissingCatalogue[] = "error in getting message from message file\n";

class StartUp : public FrontEnd {
  protected:
    std::string traced_run(const std::string &line, int expected) {
        EXPECT_EQ(run("-trace " + directory_ / "trace" + " -level 0 0 0 3 " + line), expected) << line;
        return trace();
    }

    std::string usage() const {
        std::string text = platform_banner("TSLWNFS") + "TWNFS-65006: Usage: see the command summary.\n";
        for (int number = 65051; number <= 65058; ++number)
            text += *messages_catalogue().text(number);
        return text;
    }
};

const std::vector<std::string> kWholeSession = {
    "tdm_tslinit(octx)", "tdm_discover(4, 513)", "tdm_registerthread(0, 1, 0, 0, tslwnfs)",
    "tdm_init()",        "catfile(/a)",          "tdm_fini()"};

TEST_F(StartUp, OpensTheSessionRunsTheCommandAndCloses) {
    EXPECT_EQ(run("cat /a"), 0);
    EXPECT_EQ(recorder().calls, kWholeSession);
    EXPECT_EQ(printed_, "CAT /a : \n" + kSuccess);
    EXPECT_EQ(pbsz, 512u);
}

TEST_F(StartUp, ClosesTheSessionAfterAFailedCommandToo) {
    recorder().answers["catfile"] = {3};
    EXPECT_EQ(run("cat /a"), 3);
    EXPECT_EQ(recorder().calls, kWholeSession);
}

TEST_F(StartUp, TellsTheLibraryItsTraceLevelsOnlyWhenTracing) {
    run("-level 1 2 3 4 cat /a");
    EXPECT_EQ(recorder().calls, kWholeSession);
    recorder().calls.clear();
    run("-trace " + directory_ / "trace" + " -level 1 2 3 4 cat /a");
    EXPECT_THAT(recorder().calls,
                ElementsAre("tdm_tslinit(octx)", "tdm_discover(4, 513)", "tdm_registerthread(0, 1, 0, 0, tslwnfs)",
                            "tdm_trace(19396, 1)", "tdm_trace(19392, 2)", "tdm_trace(19394, 3)", "tdm_trace(19398, 0)",
                            "tdm_init()", "catfile(/a)", "tdm_fini()"));
    EXPECT_EQ(trace_enabled, 1);
    EXPECT_EQ(log_enabled, 1);
}

// A person at the terminal, as far as the program can tell.
class AtTheTerminal : public StartUp {
  protected:
    AtTheTerminal() { terminal::open(); }
    ~AtTheTerminal() override { terminal::close(); }

    std::string told(const std::string &line, int expected) {
        CapturedOutput captured(STDERR_FILENO);
        EXPECT_EQ(run(line), expected) << line;
        return captured.text();
    }

  private:
    ScopedEnvironment always_{"TSLWNFS_TERMINAL", "always"};
};

TEST_F(AtTheTerminal, CallsTheLibraryAsElsewhere) {
    EXPECT_EQ(told("cat /a", 0), "");
    EXPECT_EQ(recorder().calls, kWholeSession);
}

TEST_F(AtTheTerminal, LeavesATraceTheLevelsItWasGiven) {
    told("-trace " + directory_ / "trace" + " -level 4 0 0 0 cat /a", 0);
    EXPECT_THAT(recorder().calls, testing::Contains("tdm_trace(19396, 4)"));
    EXPECT_THAT(recorder().calls, testing::Not(testing::Contains("tdm_trace(19396, 3)")));
}

TEST_F(AtTheTerminal, LeavesTheTerminalToATraceThere) {
    EXPECT_EQ(told("-trace cp a", 1), "");
    EXPECT_EQ(recorder().calls.front(), "tdm_tslinit(octx)");
}

TEST_F(AtTheTerminal, TellsWhyARunFailed) {
    EXPECT_THAT(told("copy a", 1), testing::StartsWith("tslwnfs: The second operand is missing\n"
                                                       "tslwnfs: copy|cp [-i] [-r] SOURCE DESTINATION\n"));
    EXPECT_EQ(printed_, kFailed);
    recorder().answers["tdm_init"] = {9};
    EXPECT_EQ(told("cat /a", 1), "tslwnfs: The storage session could not be opened (status 9)\n");
    EXPECT_EQ(printed_, "");
}

TEST_F(AtTheTerminal, TellsWhyTheRootIsRefused) {
    EXPECT_EQ(told("rm -r /", 4), "tslwnfs: / is never deleted\n");
    EXPECT_EQ(told("rm //", 4), "tslwnfs: / is never deleted\n");
    EXPECT_EQ(told("ls /", 4), "tslwnfs: / is no entry of a directory\n");
}

TEST_F(AtTheTerminal, TellsThatTheHomeIsMissing) {
    const ScopedEnvironment unset("TESSEL_HOME", nullptr);
    messages_catalogue().forget();
    EXPECT_THAT(told("cat /a", 1), testing::HasSubstr("TESSEL_HOME"));
}

TEST_F(StartUp, TracesABareHeadForTheDiscovery) {
    EXPECT_EQ(traced_run("cat /a", 0), "[n],main ");
}

TEST_F(StartUp, LeavesTheTraceEmptyWithoutALevel) {
    run("-trace " + directory_ / "trace" + " cat /a");
    EXPECT_EQ(read_file(directory_ / "trace"), "");
    EXPECT_TRUE(std::filesystem::exists(directory_ / "trace"));
}

TEST_F(StartUp, RunsEveryCommandInsideTheSession) {
    for (const char *line : {"save", "enum_local_ips", "getserverlist"}) {
        recorder() = {};
        recorder().answers["tdm_init"] = {5};
        EXPECT_EQ(run(line), 1);
        EXPECT_EQ(recorder().calls.back(), "tdm_init()") << line;
    }
}

TEST_F(StartUp, EndsSilentlyWhereItFails) {
    struct Case {
        const char *function;
        const char *record;
        std::size_t calls;
    };
    for (const Case &one :
         {Case{"tdm_discover", "[n],main TWNFS-65012: The storage library could not be discovered (status 9).\n", 2},
          {"tdm_registerthread",
           "[n],main [n],main TWNFS-65004: The thread could not be registered with the storage library (status 9).\n",
           3},
          {"tdm_init", "[n],main [n],main TWNFS-65002: The storage session could not be opened (status 9).\n", 8}}) {
        recorder() = {};
        recorder().answers[one.function] = {9};
        EXPECT_EQ(traced_run("cat /a", 1), one.record);
        EXPECT_EQ(printed_, "");
        EXPECT_EQ(recorder().calls.size(), one.calls);
    }
}

TEST_F(StartUp, NeedsAHomeBeforeAnythingElse) {
    const ScopedEnvironment unset("TESSEL_HOME", nullptr);
    for (const char *line : {"cat /a", "copy a", "nfsids"}) {
        EXPECT_EQ(run(line), 1);
        EXPECT_EQ(printed_, "") << line;
        EXPECT_THAT(recorder().calls, IsEmpty());
    }
    EXPECT_EQ(traced_run("cat /a", 1),
              "[n],main TWNFS-65037: The installation home could not be determined; check TESSEL_HOME.\n");
}

TEST_F(StartUp, CopiesTheHomeAsItIs) {
    const ScopedEnvironment home("TESSEL_HOME", "/some/home/");
    run("cat /a");
    EXPECT_STREQ(tsl_home, "/some/home/");
    EXPECT_STREQ(tsl_ohome, "/some/home/");
    const std::string longest = "/" + std::string(258, 'h');
    const ScopedEnvironment fits("TESSEL_HOME", longest.c_str());
    EXPECT_EQ(run("cat /a"), 0);
    EXPECT_EQ(tsl_home, longest);
    const ScopedEnvironment too_long("TESSEL_HOME", (longest + "h").c_str());
    EXPECT_EQ(run("cat /a"), 1);
}

TEST_F(StartUp, AsksForMissingOperandsBeforeTheSession) {
    EXPECT_EQ(traced_run("copy a", 1), "[n],main TWNFS-65017: The second operand is missing.\n");
    EXPECT_EQ(printed_, kFailed);
    EXPECT_THAT(recorder().calls, ElementsAre("tdm_tslinit(octx)"));
    for (const char *line : {"copy", "find", "display_server", "iswnfsenabled", "ls -l"}) {
        reset_options();
        EXPECT_EQ(traced_run(line, 1), "[n],main TWNFS-65016: The first operand is missing.\n") << line;
        EXPECT_EQ(printed_, kFailed);
    }
}

TEST_F(StartUp, AsksForOperandsThatTheGrammarCallsOptional) {
    for (const char *line : {"umount", "mount", "mount exp", "iswnfsenabled", "umount -y"}) {
        reset_options();
        EXPECT_EQ(run(line), 1) << line;
        EXPECT_EQ(printed_, kFailed) << line;
    }
    reset_options();
    EXPECT_EQ(run("showmount"), 0);
    EXPECT_THAT(recorder().calls, testing::Contains("showMount(null)"));
}

TEST_F(StartUp, PutsTheVerdictOnAMissingOperandIntoTheLog) {
    EXPECT_EQ(run("-log " + directory_ / "log" + " copy a"), 1);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(read_file(directory_ / "log"), kFailed);
}

TEST_F(StartUp, GivesDdItsStandardStreams) {
    struct Case {
        const char *line, *first, *second;
    };
    CapturedOutput errors(STDERR_FILENO);
    for (const Case &one : {Case{"dd -bs 1", "stdin", "stdout"},
                            {"dd -of out", "stdin", "out"},
                            {"dd -if in", "in", "stdout"},
                            {"dd -if in -of out", "in", "out"}}) {
        reset_options();
        run(one.line);
        EXPECT_STREQ(fname, one.first) << one.line;
        EXPECT_STREQ(fname1, one.second) << one.line;
    }
    reset_options();
    run("cat /a");
    EXPECT_EQ(fname1, nullptr);
}

TEST_F(StartUp, SetsTheDepthForFindOnly) {
    CapturedOutput errors(STDERR_FILENO);
    run("find /d -maxdepth 3");
    EXPECT_EQ(maxdepth, 3);
    reset_options();
    run("find /d");
    EXPECT_EQ(maxdepth, 50);
    reset_options();
    run("ls -e /d");
    EXPECT_EQ(maxdepth, 50);
}

TEST_F(StartUp, ClosesTheLogBeforeTheCommandWhenToldTo) {
    redirect_out = 1;
    EXPECT_EQ(run("-log " + directory_ / "log" + " cat /a"), 0);
    EXPECT_EQ(read_file(directory_ / "log"), "");
    EXPECT_EQ(printed_, "CAT /a : \n" + kSuccess);
}

// Usage and help

TEST_F(StartUp, AnswersAWrongLineWithTheUsage) {
    for (const char *line : {"", "nosuch", "copy a b c", "-trace", "-level 1 2 3 5 ls /x"}) {
        EXPECT_EQ(run(line), 1);
        EXPECT_EQ(printed_, usage()) << line;
        EXPECT_THAT(recorder().calls, IsEmpty());
    }
}

TEST_F(StartUp, AddsThreeLinesForHelpWhichIsNoSuccess) {
    const std::string help =
        usage() +
        "TSLWNFS Helper Utility performs remote file operations using Tessel Wren NFS Client."
        "For information on Wren NFS Client, and for detailed description of TSLNWNFS options, please consult the "
        "4kR3 Database Installation Manual for Microsoft Windows.\n\n"
        "NOTE: For TSLWNFS to operate, tslnfstab configuration file must be present in TesselHome\\dbs directory. \n";
    for (const char *line : {"help", "h", "?"}) {
        EXPECT_EQ(run(line), 1);
        EXPECT_EQ(printed_, help) << line;
    }
    EXPECT_EQ(run("-log " + directory_ / "log" + " help"), 1);
    EXPECT_EQ(printed_, help);
    EXPECT_EQ(read_file(directory_ / "log"), "");
}

TEST_F(StartUp, ShowsTheOptionsOfDd) {
    EXPECT_EQ(run("dd"), 1);
    EXPECT_EQ(printed_,
              "TWNFS-65006: Usage: see the command summary.\n"
              "dd [-if <value>,-of <value>,-obs <value>,-ibs<value>,-bs <value>,-count <value>,-seek<value>,"
              "-skip <value>] \n"
              "Convert and copy a file via Wren NFS \n\n"
              "Options \n\n"
              "-bs BYTES \t force ibs=BYTES and obs=BYTES \n"
              "-count BLOCKS \t copy only BLOCKS input blocks  \n"
              "-ibs BYTES \t read BYTES bytes at a time\n"
              "-if FILE \t read from FILE instead of stdin\n"
              "-obs BYTES \t write BYTES bytes at a time\n"
              "-of FILE \t write to FILE instead of stdout\n"
              "-seek N \t skip N obs-sized blocks at start of output\n"
              "-skip N\tskip N ibs-sized blocks at start of input\n\n"
              "BLOCKS and BYTES may be followed by the following multiplicative suffixes:\n"
              "c (1 byte), w (2 bytes), b (512 bytes), KB (1000 bytes),\n"
              "K (1024 bytes), MB (1000*1000 bytes), M (1024*1024 bytes),\n"
              "GB (1000*1000*1000 bytes), G (1024*1024*1024 bytes)\n ");
    EXPECT_EQ(run("dd -bs 4c"), 1);
    EXPECT_TRUE(printed_.starts_with("TWNFS-65047: "));
}

TEST_F(StartUp, WorksWithoutACatalogueAndSaysSoForEveryMessage) {
    const ScopedEnvironment nowhere("NLSPATH", (directory_ / "none").c_str());
    EXPECT_EQ(run("cat /a"), 0);
    EXPECT_EQ(printed_, std::string("CAT /a : \n") + kMissingCatalogue);
    EXPECT_EQ(run("nosuch"), 1);
    std::string expected = platform_banner("TSLWNFS");
    for (int i = 0; i < 9; ++i)
        expected += kMissingCatalogue;
    EXPECT_EQ(printed_, expected);
}

// The caller, and nfsids

TEST_F(StartUp, TurnsAStrangerAwayOnStandardError) {
    recorder().allowed = false;
    CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(run("cat /a"), 1);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(errors.text(), "TWNFS-65000: You are not a member of the administrators' group; TSLWNFS was not run.\n");
    EXPECT_THAT(recorder().calls, IsEmpty());
}

TEST_F(StartUp, ShowsThePresentedIdentityInTheColumnsOfItsDestination) {
    EXPECT_EQ(run("nfsids"), 0);
    EXPECT_EQ(printed_,
              "\nCOMPUTER NAME:             dbhost\n"
              "UID:                        1001\n"
              "GID:                        54321\n");
    EXPECT_EQ(recorder().calls.back(), "tdm_fini()");
    EXPECT_EQ(run("-log " + directory_ / "log" + " nfsids"), 0);
    EXPECT_EQ(printed_, "");
    EXPECT_EQ(read_file(directory_ / "log"),
              "\nCOMPUTER NAME:  dbhost\n"
              "UID:              1001\n"
              "GID:              54321\n");
}

TEST_F(StartUp, ShowsThatThereIsNoIdentityAndSucceedsAllTheSame) {
    recorder().has_identity = false;
    EXPECT_EQ(run("nfsids"), 0);
    EXPECT_EQ(printed_, "\n failed .....");
}

}  // namespace
