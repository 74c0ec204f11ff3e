// SPDX-License-Identifier: MIT
#include "hosts/linux/authorization/polkit_authorization.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <sstream>

#include "tests/authorization/fake_service.h"
#include "tests/support/private_pipewire.h"

namespace authorization_test {
namespace {

using linux_host::PolkitAuthorization;
using linux_host::SystemBus;
using platform::AuthorizationRef;
using test_support::PrivatePipeWire;

constexpr platform::AuthorizationFlags kFlags = platform::kAuthorizationFlagInteractionAllowed |
                                                platform::kAuthorizationFlagExtendRights |
                                                platform::kAuthorizationFlagPreAuthorize;

constexpr char kPolicyKit[] = R"x(<node><interface name="org.freedesktop.PolicyKit1.Authority">
  <method name="CheckAuthorization">
    <arg type="(sa{sv})" direction="in"/><arg type="s" direction="in"/>
    <arg type="a{ss}" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="(bba{ss})" direction="out"/>
  </method></interface></node>)x";

void write(const std::string& path, const std::string& content) {
  std::ofstream(path) << content;
}

std::string read(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Runs the main loop until the condition holds.
bool iterateUntil(const std::function<bool()>& condition) {
  return test_support::waitUntil([&] {
    g_main_context_iteration(nullptr, FALSE);
    return condition();
  });
}

class PolkitAuthorizationTest : public testing::Test {
 public:
  PolkitAuthorizationTest() {
    write(pkexec, "#!/bin/sh\necho $$ > " + record + ".pid\necho \"$PPID $*\" > " + record +
                      ".new\nmv " + record + ".new " + record + "\nexit 3\n");
    chmod(pkexec.c_str(), 0755);
  }
  void answer(bool authorized, bool challenge, const char* details = "{}") {
    respond = [=](GDBusMethodInvocation* invocation, GVariant*) {
      g_dbus_method_invocation_return_value(
          invocation, g_variant_new("(@(bba{ss}))",
                                    g_variant_new_parsed(
                                        ("(%b, %b, @a{ss} " + std::string(details) + ")").c_str(),
                                        authorized, challenge)));
    };
  }
  platform::OSStatus copyRights(AuthorizationRef reference) {
    return authorization.AuthorizationCopyRights(reference, platform::kAuthorizationRightAdmin,
                                                 kFlags);
  }
  AuthorizationRef created() {
    AuthorizationRef reference = nullptr;
    EXPECT_EQ(authorization.AuthorizationCreate(platform::kAuthorizationFlagDefaults, &reference),
              0);
    EXPECT_NE(reference, nullptr);
    return reference;
  }

  PrivatePipeWire server{PrivatePipeWire::Options::busOnly()};
  std::string record = server.directory() + "/record";
  std::string pkexec = server.directory() + "/pkexec";
  FakeService::Handler respond;
  std::string received;
  FakeService polkit{server.busAddress(), "org.freedesktop.PolicyKit1",
                     "/org/freedesktop/PolicyKit1/Authority", kPolicyKit,
                     [this](GDBusMethodInvocation* invocation, GVariant* arguments) {
                       char* text = g_variant_print(arguments, FALSE);
                       received = text;
                       g_free(text);
                       respond(invocation, arguments);
                     }};
  SystemBus bus{server.busAddress()};
  PolkitAuthorization authorization{bus, linux_host::refusalBySystem, pkexec};
};

TEST_F(PolkitAuthorizationTest, AsksForTheSuitesOwnActionOnBehalfOfThisProcess) {
  answer(true, false);
  AuthorizationRef reference = created();
  EXPECT_EQ(copyRights(reference), 0);
  EXPECT_EQ(authorization.AuthorizationFree(reference), 0);
  EXPECT_NE(received.find("('unix-process', {'pid': <uint32 " + std::to_string(getpid()) + ">"),
            std::string::npos)
      << received;
  EXPECT_NE(received.find("'uid': <" + std::to_string(getuid()) + ">"), std::string::npos);
  EXPECT_NE(received.find("'com.vantrel.korvel.install-driver', {}, 1, ''"), std::string::npos)
      << received;
  // The 22nd field of the kernel's record: the start time.
  std::string stat = read("/proc/self/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string start;
  for (int field = 3; field <= 22; ++field) fields >> start;
  EXPECT_NE(received.find("'start-time': <uint64 " + start + ">"), std::string::npos) << received;
}

TEST_F(PolkitAuthorizationTest, WithoutInteractionItAsksNobody) {
  answer(false, true);
  AuthorizationRef reference = created();
  EXPECT_EQ(authorization.AuthorizationCopyRights(reference, platform::kAuthorizationRightAdmin,
                                                  platform::kAuthorizationFlagExtendRights),
            linux_host::errAuthorizationInteractionNotAllowed);
  EXPECT_NE(received.find("{}, 0, ''"), std::string::npos) << received;
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, TellsARefusalFromACancelledDialog) {
  AuthorizationRef reference = created();
  answer(false, false);
  EXPECT_EQ(copyRights(reference), linux_host::errAuthorizationDenied);
  answer(false, false, "{'polkit.dismissed': 'true'}");
  EXPECT_EQ(copyRights(reference), linux_host::errAuthorizationCanceled);
  answer(false, true);
  EXPECT_EQ(copyRights(reference), linux_host::errAuthorizationDenied);
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, AnErrorInPolkitGrantsNothing) {
  respond = [](GDBusMethodInvocation* invocation, GVariant*) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, "org.freedesktop.PolicyKit1.Error.Failed", "Action is not registered");
  };
  AuthorizationRef reference = created();
  EXPECT_EQ(copyRights(reference), linux_host::errAuthorizationInternal);
  EXPECT_EQ(authorization.AuthorizationExecuteWithPrivileges(reference, "/usr/bin/env", 0, {}),
            linux_host::errAuthorizationDenied);
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, KnowsNoOtherRight) {
  answer(true, false);
  AuthorizationRef reference = created();
  EXPECT_EQ(authorization.AuthorizationCopyRights(reference, "system.privilege.taskport", kFlags),
            linux_host::errAuthorizationDenied);
  EXPECT_EQ(received, "");
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, KeepsTheMainLoopAliveWhileTheUserIsAskedAndAsksOnce) {
  GDBusMethodInvocation* waiting = nullptr;
  respond = [&](GDBusMethodInvocation* invocation, GVariant*) { waiting = invocation; };
  AuthorizationRef reference = created();
  struct Context {
    PolkitAuthorizationTest* test;
    AuthorizationRef reference;
    GDBusMethodInvocation** waiting;
    platform::OSStatus second = 0;
  } context{this, reference, &waiting};
  g_idle_add(
      [](gpointer data) -> gboolean {
        auto* c = static_cast<Context*>(data);
        if (*c->waiting == nullptr) return G_SOURCE_CONTINUE;
        c->second = c->test->copyRights(c->reference);
        g_dbus_method_invocation_return_value(*c->waiting,
                                              g_variant_new_parsed("((true, false, @a{ss} {}),)"));
        return G_SOURCE_REMOVE;
      },
      &context);
  EXPECT_EQ(copyRights(reference), 0);
  EXPECT_EQ(context.second, linux_host::errAuthorizationInternal);
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, StartsTheToolWithPkexecAndReapsIt) {
  answer(true, false);
  AuthorizationRef reference = created();
  ASSERT_EQ(copyRights(reference), 0);
  EXPECT_EQ(authorization.AuthorizationExecuteWithPrivileges(reference, "/usr/bin/env", 0,
                                                             {"one", "two three"}),
            0);
  authorization.AuthorizationFree(reference);
  EXPECT_TRUE(iterateUntil([&] { return access(record.c_str(), F_OK) == 0; }));
  // Its parent is this process, which polkit has authorized.
  EXPECT_EQ(read(record),
            std::to_string(getpid()) + " --disable-internal-agent /usr/bin/env one two three\n");
  const pid_t child = std::stoi(read(record + ".pid"));
  EXPECT_TRUE(iterateUntil([&] { return kill(child, 0) != 0 && errno == ESRCH; }))
      << "a zombie is left";
}

TEST_F(PolkitAuthorizationTest, RunsNothingWithoutTheRight) {
  AuthorizationRef reference = created();
  EXPECT_EQ(authorization.AuthorizationExecuteWithPrivileges(reference, "/usr/bin/env", 0, {}),
            linux_host::errAuthorizationDenied);
  authorization.AuthorizationFree(reference);
  EXPECT_EQ(authorization.AuthorizationExecuteWithPrivileges(nullptr, "/usr/bin/env", 0, {}),
            linux_host::errAuthorizationInvalidRef);
  EXPECT_EQ(copyRights(nullptr), linux_host::errAuthorizationInvalidRef);
  EXPECT_EQ(authorization.AuthorizationFree(nullptr), linux_host::errAuthorizationInvalidRef);
}

TEST_F(PolkitAuthorizationTest, RunsNothingThatAUserCouldHaveWritten) {
  answer(true, false);
  AuthorizationRef reference = created();
  ASSERT_EQ(copyRights(reference), 0);
  const std::string tool = server.directory() + "/DriverInstaller";
  write(tool, "#!/bin/sh\n");
  chmod(tool.c_str(), 0755);
  for (const std::string& path : {tool, std::string("/proc/self/exe"), std::string("/usr/bin/none"),
                                  std::string("env"), std::string("/usr/../usr/bin/env")}) {
    EXPECT_EQ(authorization.AuthorizationExecuteWithPrivileges(reference, path, 0, {}),
              linux_host::errAuthorizationToolExecuteFailure)
        << path;
  }
  EXPECT_NE(access(record.c_str(), F_OK), 0);
  authorization.AuthorizationFree(reference);
}

TEST_F(PolkitAuthorizationTest, WithoutPkexecOrBusThereIsNoAuthorization) {
  AuthorizationRef reference = nullptr;
  PolkitAuthorization noPkexec(bus, linux_host::refusalBySystem, "/nonexistent/pkexec");
  EXPECT_EQ(noPkexec.AuthorizationCreate(0, &reference), linux_host::errAuthorizationInternal);
  SystemBus noBus("unix:path=/nonexistent");
  PolkitAuthorization noPolkit(noBus, linux_host::refusalBySystem, pkexec);
  EXPECT_EQ(noPolkit.AuthorizationCreate(0, &reference), linux_host::errAuthorizationInternal);
  EXPECT_EQ(reference, nullptr);
}

}  // namespace
}  // namespace authorization_test
