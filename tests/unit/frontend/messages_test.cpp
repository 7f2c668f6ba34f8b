// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/messages.h"

#include <algorithm>
#include <climits>

#include "front_end_fixture.h"

namespace {

template <class Message, class... Given>
constexpr bool takes(Message, Given...) {
    return requires(Message message, Given... given) {
        message_text(message, given...);
        print_message(message, given...);
        trace_message("f", message, given...);
    };
}

// Wrong arguments do not compile.
static_assert(takes(Message::home_unknown));
static_assert(!takes(Message::home_unknown, "/a"));
static_assert(takes(Message::create_failed, "/a", uint32_t{5}));
static_assert(!takes(Message::create_failed));
static_assert(!takes(Message::create_failed, "/a"));
static_assert(!takes(Message::create_failed, uint32_t{5}, "/a"));
static_assert(!takes(Message::create_failed, "/a", 5));
static_assert(!takes(Message::create_failed, "/a", uint64_t{5}));
static_assert(!takes(Message::create_failed, "/a", uint32_t{5}, uint32_t{5}));
static_assert(!takes(Message::file_exists, std::string_view()));
static_assert(!takes(Message::file_exists, nullptr));
static_assert(takes(Message::log_unopenable, "/a", int32_t{-1}));
static_assert(takes(Message::out_of_memory, 5ul));

class Messages : public FrontEnd {
  protected:
    static std::string text_of(uint32_t number) {
        char buffer[kMessageBufferSize] = {};
        get_message(number, buffer);
        return buffer;
    }

    // Makes a catalogue of one text for the message path_unresolvable or remote_delete_failed.
    void use_text(const std::string &text) {
        write_file(directory_ / "one.msg", "$quote \"\n$set 1\n65059 \"" + text + "\"\n65030 \"" + text +
                                               "\"\n65022 \"" + text + "\"\n65051 \"" + text + "\"\n");
        const std::string command =
            "rm -f " + directory_ / "one.cat" + " && gencat " + directory_ / "one.cat" + " " + directory_ / "one.msg";
        ASSERT_EQ(std::system(command.c_str()), 0);
        path_.emplace("NLSPATH", (directory_ / "one.cat").c_str());
        messages_catalogue().forget();
    }

    static std::string path_text() { return message_text(Message::path_unresolvable, "/a"); }

  private:
    std::optional<ScopedEnvironment> path_;
};

TEST_F(Messages, HaveANumberInFrontAndALineFeedBehind) {
    EXPECT_EQ(text_of(65000), "TWNFS-65000: You are not a member of the administrators' group; TSLWNFS was not run.\n");
    EXPECT_EQ(text_of(65023), "TWNFS-65023: The command completed successfully.\n");
}

TEST_F(Messages, OfTheUsageComeBareWithTheirOwnLineEnd) {
    EXPECT_EQ(text_of(65051),
              "tslwnfs [-trace [tracefile]] [-level L-5 L-4 L-3 L-2] [-log logfile] command [options] [operands] "
              "[-y]\n");
    EXPECT_FALSE(text_of(65058).starts_with("TWNFS"));
}

TEST_F(Messages, WithoutACatalogueSaySoAtEveryLookUpAndLeaveTheBufferAlone) {
    const ScopedEnvironment nowhere("NLSPATH", (directory_ / "none").c_str());
    char buffer[kMessageBufferSize] = "as it was";
    CapturedOutput captured;
    get_message(65023, buffer);
    get_message(65051, buffer);
    EXPECT_EQ(captured.text(),
              "error in getting message from message file\nerror in getting message from message file\n");
    EXPECT_STREQ(buffer, "as it was");
}

TEST_F(Messages, KeepTheirLineFeedWhenTheTextIsTooLong) {
    use_text(std::string(900, 'x'));
    const std::string text = text_of(65022);
    EXPECT_EQ(text.size(), kMessageBufferSize - 1);
    EXPECT_TRUE(text.ends_with("x\n"));
    EXPECT_EQ(text_of(65051).size(), kMessageBufferSize - 1);
}

TEST_F(Messages, TakeArgumentsOfEveryKind) {
    EXPECT_EQ(message_text(Message::log_unopenable, "/l", int32_t{-1}),
              "TWNFS-65026: The log file /l could not be opened (error -1).\n");
    EXPECT_EQ(message_text(Message::remote_delete_failed, "/f", UINT32_MAX),
              "TWNFS-65030: /f could not be deleted on the server (status 4294967295).\n");
    EXPECT_EQ(message_text(Message::out_of_memory, ULONG_MAX),
              "TWNFS-65060: 18446744073709551615 bytes of memory could not be allocated.\n");
}

TEST_F(Messages, NeverTakeTheirArgumentsForFormats) {
    EXPECT_EQ(message_text(Message::path_unresolvable, "/%n%s%%"),
              "TWNFS-65059: The path /%n%s%% could not be resolved.\n");
}

TEST_F(Messages, AreShownAsTheyStandWhenTheirConversionsDoNotFit) {
    for (const char *text : {"%n", "%s %s", "%u", "%d", "%lu", "%ld", "%1$s", "%*d", "%.9999s", "%5s", "%", "%s %",
                             "%hhn", "%S", "%ls", "%p", "% d", "%s%n"}) {
        use_text(text);
        EXPECT_EQ(path_text(), std::string("TWNFS-65059: ") + text + "\n");
    }
}

TEST_F(Messages, MayLeaveOutTheirLastArguments) {
    use_text("gone: %s");
    EXPECT_EQ(message_text(Message::remote_delete_failed, "/f", 2u), "TWNFS-65030: gone: /f\n");
    use_text("gone");
    EXPECT_EQ(path_text(), "TWNFS-65059: gone\n");
}

TEST_F(Messages, ShowADoubledPercentSignOnce) {
    use_text("100%% of %s%%");
    EXPECT_EQ(path_text(), "TWNFS-65059: 100% of /a%\n");
}

TEST_F(Messages, ArePrintedToTheLogWhenThereIsOne) {
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    CapturedOutput captured;
    print_message(Message::command_failed, uint32_t{9});
    print_message(Message::command_succeeded);
    EXPECT_EQ(captured.text(), "");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"),
              "TWNFS-65022: The command failed with status 9.\nTWNFS-65023: The command completed successfully.\n");
}

TEST_F(Messages, AreNumberedOnceAndInOrder) {
    const auto shapes = message_shapes();
    EXPECT_EQ(shapes.size(), 70u);
    EXPECT_TRUE(std::is_sorted(shapes.begin(), shapes.end(), [](const MessageShape &one, const MessageShape &other) {
        return one.number < other.number;
    }));
}

}  // namespace
