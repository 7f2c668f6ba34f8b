// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "tests/unit/terminal/open_screen.h"

namespace terminal {
namespace {

TEST(Screen, IsClosedUntilItIsOpenedWhereAPersonLooks) {
    const CapturedOutput no_terminal(STDERR_FILENO);
    EXPECT_FALSE(is_open());
    for (const char *value : {static_cast<const char *>(nullptr), "", "never", "Always", "always!"}) {
        const ScopedEnvironment setting("TSLWNFS_TERMINAL", value);
        open();
        EXPECT_FALSE(is_open()) << (value == nullptr ? "unset" : value);
    }
    const ScopedEnvironment setting("TSLWNFS_TERMINAL", "always");
    open();
    EXPECT_TRUE(is_open());
    close();
    EXPECT_FALSE(is_open());
}

TEST(Screen, IsSilentWhileItIsClosed) {
    CapturedOutput captured(STDERR_FILENO);
    say("something");
    show("something");
    erase();
    EXPECT_EQ(captured.text(), "");
}

class ScreenTest : public OpenScreen {};

TEST_F(ScreenTest, SaysALineUnderTheProgramsName) {
    EXPECT_EQ(written([] { say("it is\nso"); }), "tslwnfs: it is?so\n");
}

TEST_F(ScreenTest, ReplacesAndErasesALineThatIsShown) {
    EXPECT_EQ(written([] {
                  show("long one");
                  show("short");
                  erase();
                  erase();
              }),
              "\rlong one\rshort   \r     \r");
}

TEST_F(ScreenTest, ErasesTheShownLineBeforeItSaysSomething) {
    EXPECT_EQ(written([] {
                  show("abc");
                  say("x");
              }),
              "\rabc\r   \rtslwnfs: x\n");
}

TEST_F(ScreenTest, KnowsAFileFromAPipe) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::tmpfile(), std::fclose);
    EXPECT_TRUE(leads_to_file(file.get()));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::unique_ptr<FILE, int (*)(FILE *)> reader(fdopen(ends[0], "r"), std::fclose);
    const std::unique_ptr<FILE, int (*)(FILE *)> writer(fdopen(ends[1], "w"), std::fclose);
    EXPECT_FALSE(leads_to_file(writer.get()));
}

}  // namespace
}  // namespace terminal
