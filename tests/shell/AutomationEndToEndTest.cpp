// Automation as other programs reach it: the real `quillet` on a private session bus and X
// server, called by gdbus and busctl, with another application owning the clipboard.
#include <gtest/gtest.h>

// After gtest, whose headers use a name Xlib defines as a macro (None).
#include "support/DesktopHarness.h"
#include "support/X11Clients.h"

#include <unistd.h>

namespace quillet {
namespace {

using testing::ProcessResult;

ProcessResult call(const std::string& method, const std::vector<std::string>& args = {}) {
    std::vector<std::string> command = {"/usr/bin/gdbus",
                                        "call",
                                        "--session",
                                        "--dest",
                                        "com.quillet.app",
                                        "--object-path",
                                        "/com/quillet/Snippets",
                                        "--method",
                                        "com.quillet.Snippets." + method};
    command.insert(command.end(), args.begin(), args.end());
    return testing::runProcess(command);
}

TEST(AutomationEndToEnd, EveryMethodAnswersOnTheSessionBus) {
    const Snippet sig = testing::snippet(";sig", "Best wishes\nfrom {clipboard}");
    const Snippet pin = testing::snippet(";pin", "1234", [](Snippet& s) { s.locked = true; });
    testing::QuilletProcess quillet({sig, pin});
    ASSERT_TRUE(quillet.waitForLog("automation on the session bus", 0)) << quillet.log();
    RunLoop loop;
    testing::OtherApp owner(loop);
    ASSERT_TRUE(owner.opened());
    owner.call([](X11Clipboard& c) {
             return (c.write({{"text/plain;charset=utf-8", "Ann"}}), 0);
         })
        .wait();

    const std::string both = "([('" + sig.id.text() + "', ';sig', 'Best wishes'), ('" +
                             pin.id.text() + "', ';pin', 'Locked')],)\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> answers = {
        {{"List"}, both},
        {{"Search", "SIG"}, "([('" + sig.id.text() + "', ';sig', 'Best wishes')],)\n"},
        {{"Expand", sig.id.text()}, "('Best wishes\\nfrom Ann',)\n"},
        {{"Add", ";new", "New text"}, "('Added ;new.',)\n"},
    };
    for (const auto& [args, out] : answers) {
        ProcessResult r = call(args[0], {args.begin() + 1, args.end()});
        EXPECT_EQ(r.status, 0) << args[0] << ": " << r.err;
        EXPECT_EQ(r.out, out) << args[0];
    }
    ProcessResult r = call("List");
    EXPECT_TRUE(r.out.starts_with(both.substr(0, both.size() - 4) + ", ('") &&
                r.out.ends_with("', ';new', 'New text')],)\n"))
        << r.out;

    r = call("Expand", {pin.id.text()});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("com.quillet.Snippets.Failed: Couldn't expand ;pin."), std::string::npos)
        << r.err;

    // Argument names are in the introspection data, for whoever builds a call by hand.
    r = testing::runProcess({"/usr/bin/gdbus", "introspect", "--session", "--dest",
                             "com.quillet.app", "--object-path", "/com/quillet/Snippets"});
    for (const char* line : {"List(out a(sss) snippets);", "Expand(in  s id,", "out s text);",
                             "Add(in  s abbreviation,"}) {
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    }
    if (::access("/usr/bin/busctl", X_OK) == 0) {
        r = testing::runProcess({"/usr/bin/busctl", "--user", "introspect", "com.quillet.app",
                                 "/com/quillet/Snippets", "com.quillet.Snippets"});
        EXPECT_NE(r.out.find(".Search"), std::string::npos) << r.out << r.err;
        EXPECT_NE(r.out.find("a(sss)"), std::string::npos) << r.out;
    }
}

} // namespace
} // namespace quillet
