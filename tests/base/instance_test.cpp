// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <sstream>
#include <thread>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/bus/control_socket.h"
#include "hosts/linux/bus/instance_client.h"
#include "tests/base/fake_service.h"
#include "tests/base/no_requests.h"
#include "tests/base/private_bus.h"
#include "tests/base/temporary_folder.h"
#include "tests/support/child_process.h"

// Programs in separate processes that find each other, over a bus and without one.

namespace linux_host {
namespace {

using base_test::connected;
using base_test::contentsOf;
using base_test::Environment;
using base_test::NoRequests;
using base_test::PrivateBus;
using base_test::TemporaryFolder;
using test_support::ChildProcess;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

constexpr auto kLimit = 20s;

enum class Way { kBus, kSocket };

class InstanceTest : public ::testing::TestWithParam<Way> {
 protected:
  InstanceTest() {
    if (GetParam() == Way::kBus) bus_ = std::make_unique<PrivateBus>();
    std::filesystem::permissions(folder_.path(), std::filesystem::perms::owner_all);
  }

  [[nodiscard]] std::string journalFile() const { return folder_ / "journal"; }
  [[nodiscard]] std::vector<std::string> journal() const {
    std::istringstream lines(contentsOf(journalFile()));
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) all.push_back(line);
    return all;
  }
  [[nodiscard]] long count(const std::string& line) const {
    const auto all = journal();
    return std::count(all.begin(), all.end(), line);
  }
  void waitFor(const std::string& line, long times = 1) const {
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (count(line) < times) {
      ASSERT_LT(std::chrono::steady_clock::now(), end)
          << line << " did not come: " << contentsOf(journalFile()) << contentsOf(folder_ / "out");
      std::this_thread::yield();
    }
  }

  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments,
                                      std::vector<std::string> environment = {},
                                      const std::string& output = "out") {
    ChildProcess::Command command;
    command.arguments = {MINI_PROGRAM};
    command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
    command.environment = std::move(environment);
    for (const std::string& variable :
         {"MINI_JOURNAL=" + journalFile(), "XDG_RUNTIME_DIR=" + folder_.path(),
          "TMPDIR=" + folder_.path(),
          "DBUS_SESSION_BUS_ADDRESS=" +
              (bus_ != nullptr ? bus_->address() : std::string("unix:path=/nonexistent"))}) {
      command.environment.push_back(variable);
    }
    command.outputFile = folder_ / output;
    return std::make_unique<ChildProcess>(command);
  }
  // Runs a client to its end.
  std::optional<int> run(const std::vector<std::string>& arguments, const std::string& output) {
    return start(arguments, {}, output)->waitForExit(kLimit);
  }
  void waitUntilReachable() {
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (run({"--status"}, "reachable") != 0) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
    }
  }
  static void open(const std::string& gate) { base_test::write(gate, ""); }

  TemporaryFolder folder_;
  std::unique_ptr<PrivateBus> bus_;
};

TEST_P(InstanceTest, TheFirstStartLaunchesAndOpensItsPathBeforeTheLaunchIsComplete) {
  const auto first = start({"/some/path"});
  waitFor("did finish");
  EXPECT_THAT(journal(), ElementsAre("will finish", "open /some/path", "finishing", "did finish"));
}

TEST_P(InstanceTest, ASecondStartReopensTheFirstAndEnds) {
  const auto first = start({});
  waitFor("did finish");
  EXPECT_EQ(run({}, "second"), 0);
  waitFor("reopen");
  EXPECT_EQ(count("will finish"), 1);
}

TEST_P(InstanceTest, ASecondStartHandsItsPathsOver) {
  const auto first = start({});
  waitFor("did finish");
  EXPECT_EQ(run({"/a b/\xc3\xa4", "a5f597ea-d3f3-4347-bbe6-344e240acc7e"}, "second"), 0);
  waitFor("open /a b/\xc3\xa4");
  waitFor("open a5f597ea-d3f3-4347-bbe6-344e240acc7e");
  EXPECT_EQ(count("reopen"), 0);
}

TEST_P(InstanceTest, ManyStartsAtOnceGiveOneInstanceThatHearsOfAllOthers) {
  constexpr int kStarts = 8;
  std::vector<std::unique_ptr<ChildProcess>> starts;
  for (int i = 0; i < kStarts; ++i) starts.push_back(start({}));
  waitFor("reopen", kStarts - 1);
  EXPECT_EQ(count("did finish"), 1);
  const auto running = [&] {
    return std::count_if(starts.begin(), starts.end(),
                         [](const auto& one) { return one->isRunning(); });
  };
  const auto end = std::chrono::steady_clock::now() + kLimit;
  while (running() > 1) ASSERT_LT(std::chrono::steady_clock::now(), end);
  EXPECT_EQ(running(), 1);
  for (const auto& one : starts) {
    EXPECT_EQ(one->waitForExit(0ms).value_or(0), 0);
  }
}

TEST_P(InstanceTest, AStartDuringTheLaunchReachesTheInstanceWhenThatIsComplete) {
  const std::string gate = folder_ / "gate";
  const auto first = start({}, {"MINI_LAUNCH_GATE=" + gate});
  waitFor("finishing");
  const auto second = start({}, {}, "second");
  EXPECT_FALSE(second->waitForExit(200ms)) << "it waits";
  open(gate);
  EXPECT_EQ(second->waitForExit(kLimit), 0);
  waitFor("reopen");
  EXPECT_THAT(journal(), ElementsAre("will finish", "finishing", "did finish", "reopen"));
}

TEST_P(InstanceTest, AStartThatNobodyAnswersHasItsOwnExitStatus) {
  const std::string gate = folder_ / "gate";
  const auto first = start({}, {"MINI_LAUNCH_GATE=" + gate});
  waitFor("finishing");
  EXPECT_EQ(start({}, {}, "second")->waitForExit(60s), 5);
  EXPECT_THAT(contentsOf(folder_ / "second"), HasSubstr("Record Audio is already running and"));
  open(gate);
  waitFor("did finish");
}

TEST_P(InstanceTest, StatusIsOneLineOfJson) {
  EXPECT_EQ(run({"--status"}, "none"), 3);
  EXPECT_THAT(contentsOf(folder_ / "none"), HasSubstr("not running"));
  const auto first = start({}, {"MINI_RECORD=1"});
  waitFor("did finish");
  EXPECT_EQ(run({"--status"}, "status"), 0);
  const std::string line = contentsOf(folder_ / "status");
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
  EXPECT_EQ(Json::parse(line)["state"], "recording");
  EXPECT_EQ(count("reopen"), 0);
}

TEST_P(InstanceTest, StopWaitsUntilTheFileIsClosedAndPrintsIt) {
  const std::string gate = folder_ / "gate";
  const auto first = start({}, {"MINI_RECORD=1", "MINI_WRITER_GATE=" + gate});
  waitFor("did finish");
  const auto stop = start({"--stop"}, {}, "stop");
  waitFor("saved");
  EXPECT_FALSE(stop->waitForExit(200ms)) << "the writer has not closed the file";
  EXPECT_EQ(run({"--status"}, "status"), 0) << "the instance answers meanwhile";
  open(gate);
  EXPECT_EQ(stop->waitForExit(kLimit), 0);
  EXPECT_EQ(count("closed"), 1);
  EXPECT_EQ(contentsOf(folder_ / "stop"), journalFile() + "\n");
}

TEST_P(InstanceTest, CancelDeletes) {
  const auto first = start({}, {"MINI_RECORD=1"});
  waitFor("did finish");
  EXPECT_EQ(run({"--cancel"}, "cancel"), 0);
  EXPECT_THAT(journal(), Contains("deleted"));
}

TEST_P(InstanceTest, StopAndCancelFailWhereNothingRunsOrIsRecorded) {
  for (const char* option : {"--stop", "--cancel"}) {
    EXPECT_EQ(run({option}, "nothing"), 3);
  }
  EXPECT_THAT(contentsOf(folder_ / "nothing"), HasSubstr("not running"));
  EXPECT_THAT(journal(), IsEmpty()) << "asking does not start anything";
  const auto first = start({});
  waitFor("did finish");
  for (const char* option : {"--stop", "--cancel"}) {
    EXPECT_EQ(run({option}, "idle"), 3);
  }
  EXPECT_THAT(contentsOf(folder_ / "idle"), HasSubstr("Nothing is being recorded"));
}

TEST_P(InstanceTest, ASignalSavesAndEndsWithAllFilesClosed) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    std::filesystem::remove(journalFile());
    const auto first = start({}, {"MINI_RECORD=1"});
    waitFor("did finish");
    first->sendSignal(signal);
    EXPECT_EQ(first->waitForExit(kLimit), 0);
    const auto lines = journal();
    EXPECT_THAT(lines, AllOf(Contains("saved"), Contains("closed"), Contains("will terminate")));
    EXPECT_EQ(lines.back(), "end");
  }
}

TEST_P(InstanceTest, ASecondSignalEndsAtOnceButNotBeforeTheFilesAreClosed) {
  const std::string gate = folder_ / "gate";
  const auto first = start({}, {"MINI_RECORD=1", "MINI_LINGER=1", "MINI_WRITER_GATE=" + gate});
  waitFor("did finish");
  first->sendSignal(SIGINT);
  waitFor("saved");
  first->sendSignal(SIGINT);
  waitFor("will terminate");
  EXPECT_FALSE(first->waitForExit(100ms)) << "the writer still writes";
  open(gate);
  EXPECT_EQ(first->waitForExit(kLimit), 0);
  const auto lines = journal();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], "closed");
  EXPECT_EQ(lines.back(), "end");
}

TEST_P(InstanceTest, StopIsAnsweredEvenWhenTheInstanceEndsMeanwhile) {
  const std::string gate = folder_ / "gate";
  const auto first = start({}, {"MINI_RECORD=1", "MINI_WRITER_GATE=" + gate});
  waitFor("did finish");
  const auto stop = start({"--stop"}, {}, "stop");
  waitFor("saved");
  first->sendSignal(SIGTERM);
  waitFor("will terminate");
  open(gate);
  EXPECT_EQ(stop->waitForExit(kLimit), 0);
  EXPECT_EQ(first->waitForExit(kLimit), 0);
}

TEST_P(InstanceTest, AKilledInstanceDoesNotKeepTheNextFromStarting) {
  {
    const auto first = start({});
    waitFor("did finish");
  }
  const auto second = start({});
  waitFor("did finish", 2);
  EXPECT_EQ(run({}, "third"), 0);
  waitFor("reopen");
}

TEST_P(InstanceTest, AStartForARequestLaunchesOnceWithTheRequest) {
  const auto served = start({"--gapplication-service"});
  waitUntilReachable();
  EXPECT_THAT(journal(), IsEmpty()) << "nothing is launched before";
  EXPECT_EQ(run({}, "second"), 0);
  waitFor("did finish");
  EXPECT_EQ(count("reopen"), 0);
  EXPECT_EQ(run({}, "third"), 0);
  waitFor("reopen");
}

TEST_P(InstanceTest, AStartForAnOpenRequestOpensBeforeTheLaunchIsComplete) {
  const auto served = start({"--gapplication-service"});
  waitUntilReachable();
  EXPECT_EQ(run({"/x"}, "second"), 0);
  waitFor("did finish");
  EXPECT_THAT(journal(), ElementsAre("will finish", "open /x", "finishing", "did finish"));
}

TEST_P(InstanceTest, AStartForStopEndsWithoutALaunch) {
  const auto served = start({"--gapplication-service"});
  waitUntilReachable();
  EXPECT_EQ(run({"--stop"}, "stop"), 3);
  EXPECT_EQ(served->waitForExit(kLimit), 0);
  EXPECT_THAT(journal(), ElementsAre("end"));
}

INSTANTIATE_TEST_SUITE_P(Ways, InstanceTest, ::testing::Values(Way::kBus, Way::kSocket),
                         [](const auto& way) { return way.param == Way::kBus ? "Bus" : "Socket"; });

// Only with a bus.
class BusInstanceTest : public InstanceTest {
 protected:
  VariantPtr call(const char* interfaceName, const char* method, GVariant* parameters,
                  std::string* error = nullptr) {
    GError* failure = nullptr;
    VariantPtr result(g_dbus_connection_call_sync(
        connection(), kBusName, kObjectPath, interfaceName, method, parameters, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, 10000, nullptr, &failure));
    if (failure != nullptr) {
      if (error != nullptr) *error = failure->message;
      g_error_free(failure);
    }
    return result;
  }
  VariantPtr action(const char* name, std::string* error) {
    return call(kApplicationInterface, "ActivateAction",
                g_variant_new("(sava{sv})", name, nullptr, nullptr), error);
  }
  GDBusConnection* connection() {
    if (connection_ == nullptr) connection_ = connected(bus_->address());
    return connection_.get();
  }

 private:
  ConnectionPtr connection_;
};

TEST_P(BusInstanceTest, ActionsReachTheApplication) {
  const auto first = start({});
  waitFor("did finish");
  std::string error;
  EXPECT_NE(action("preferences", &error), nullptr);
  waitFor("open /preferences");
  EXPECT_EQ(action("dance", &error), nullptr);
  EXPECT_THAT(error, HasSubstr("no action dance"));
  EXPECT_EQ(action("stop", &error), nullptr);
  EXPECT_THAT(error, HasSubstr(kNothingRecordedError));
  EXPECT_NE(action("quit", &error), nullptr);
  EXPECT_EQ(first->waitForExit(kLimit), 0);
}

TEST_P(BusInstanceTest, AStartForPreferencesOpensThemWithTheLaunch) {
  const auto served = start({"--gapplication-service"});
  waitUntilReachable();
  std::string error;
  EXPECT_NE(action("preferences", &error), nullptr) << error;
  waitFor("did finish");
  EXPECT_THAT(journal(),
              ElementsAre("will finish", "open /preferences", "finishing", "did finish"));
}

TEST_P(BusInstanceTest, TheObjectCanBeIntrospected) {
  const auto first = start({});
  waitFor("did finish");
  const VariantPtr answer = call("org.freedesktop.DBus.Introspectable", "Introspect", nullptr);
  ASSERT_NE(answer, nullptr);
  const VariantPtr xml(g_variant_get_child_value(answer.get(), 0));
  EXPECT_THAT(
      g_variant_get_string(xml.get(), nullptr),
      AllOf(HasSubstr("org.freedesktop.Application"), HasSubstr("com.vantrel.korvel.ToolData1"),
            HasSubstr("MenuText"), HasSubstr("com.vantrel.korvel.RecordAudio1")));
}

TEST_P(BusInstanceTest, WhenTheBusDiesTheInstanceIsFoundByItsSocket) {
  const auto first = start({}, {"MINI_RECORD=1"});
  waitFor("did finish");
  bus_->stop();
  const auto end = std::chrono::steady_clock::now() + kLimit;
  while (run({"--status"}, "status") != 0) ASSERT_LT(std::chrono::steady_clock::now(), end);
  EXPECT_EQ(run({"--stop"}, "stop"), 0);
  EXPECT_THAT(journal(), Contains("closed"));
  EXPECT_TRUE(first->isRunning());
}

INSTANTIATE_TEST_SUITE_P(OnABus, BusInstanceTest, ::testing::Values(Way::kBus));

TEST(CommandLineTest, UnknownOptionsAreRefusedByTheProgram) {
  ChildProcess program({{MINI_PROGRAM, "--dance"}, {}, ""});
  EXPECT_EQ(program.waitForExit(kLimit), 2);
}

linux_host::Expected<std::string> safeFolderIn(const std::string& temporaryFolder) {
  return ControlSocket::safeFolder([&] { return temporaryFolder; });
}

TEST(ControlSocketTest, IsInTheRuntimeFolderOrInOneThatOnlyTheUserCanReach) {
  const TemporaryFolder folder;
  {
    const Environment environment{{"XDG_RUNTIME_DIR", folder.path()}};
    const auto mayHang = []() -> std::string {
      ADD_FAILURE() << "the temporary folder is not asked for where it is not needed";
      return {};
    };
    const auto named = ControlSocket::safeFolder(mayHang);
    ASSERT_TRUE(named) << named.error();
    EXPECT_EQ(*named, folder.path());
  }
  const Environment environment{{"XDG_RUNTIME_DIR", std::nullopt}};
  const auto made = safeFolderIn(folder.path());
  ASSERT_TRUE(made) << made.error();
  EXPECT_EQ(*made, folder / ("record-audio-" + std::to_string(geteuid())));
  struct stat status {};
  ASSERT_EQ(stat(made->c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  const auto again = safeFolderIn(folder.path());
  ASSERT_TRUE(again) << again.error();
  EXPECT_EQ(*again, *made);
}

TEST(ControlSocketTest, RefusesFoldersThatOthersCanReachOrOwn) {
  const TemporaryFolder folder;
  const Environment environment{{"XDG_RUNTIME_DIR", std::nullopt}};
  const std::string path = folder / ("record-audio-" + std::to_string(geteuid()));
  std::filesystem::create_directories(path);
  chmod(path.c_str(), 0755);
  const auto ofAll = safeFolderIn(folder.path());
  ASSERT_FALSE(ofAll);
  EXPECT_THAT(ofAll.error(), HasSubstr("0700"));
  chmod(path.c_str(), 0700);
  ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
  const auto ofAnother = safeFolderIn(folder.path());
  ASSERT_FALSE(ofAnother);
  EXPECT_THAT(ofAnother.error(), HasSubstr("another user"));
  std::filesystem::remove(path);
  std::filesystem::create_directory_symlink("/tmp", path);
  EXPECT_FALSE(safeFolderIn(folder.path()));
}

// Connects as another user; returns 0 or errno.
int connectAsSomebodyElse(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const pid_t child = fork();
  if (child == 0) {
    if (setuid(12345) != 0) _exit(EINVAL);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const int failed = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    _exit(failed == 0 ? 0 : errno);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

TEST(ControlSocketTest, IsOnlyTheUsersEvenInAnOpenFolder) {
  const TemporaryFolder folder;
  chmod(folder.path().c_str(), 0755);
  const mode_t before = umask(0);
  NoRequests requests;
  ToolObject object(requests);
  ControlSocket socket(folder.path());
  const auto isLocked = socket.lock();
  const auto listens = socket.listen(object);
  umask(before);
  ASSERT_TRUE(isLocked) << isLocked.error();
  ASSERT_TRUE(*isLocked);
  ASSERT_TRUE(listens) << listens.error();
  const auto names = base_test::namesIn(folder.path());
  EXPECT_THAT(names, Contains(std::string(kBusName) + ".sock"));
  for (const std::string& name : names) {
    struct stat status {};
    ASSERT_EQ(stat((folder / name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << name;
  }
  EXPECT_EQ(connectAsSomebodyElse(folder / (std::string(kBusName) + ".sock")), EACCES);
}

TEST(BusConnectionTest, ABusThatNeverAnswersIsGivenUp) {
  const TemporaryFolder folder;
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (folder / "bus").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  const auto start = std::chrono::steady_clock::now();
  const auto connection = connectTo("unix:path=" + (folder / "bus"), true, 200);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  ASSERT_FALSE(connection);
  EXPECT_EQ(connection.error(), "it does not answer");
  close(listener);
}

// Answers every call with a number, while the test waits for the answer.
GDBusMessage* answerWithANumber(GDBusConnection* connection, GDBusMessage* message,
                                gboolean isIncoming, gpointer) {
  const bool isCall = isIncoming != FALSE &&
                      g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
  if (!isCall) return message;
  GDBusMessage* reply = g_dbus_message_new_method_reply(message);
  g_dbus_message_set_body(reply, g_variant_new("(i)", 1));
  g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
  g_object_unref(reply);
  g_object_unref(message);
  return nullptr;
}

TEST(InstanceClientTest, AnAnswerOfAnotherTypeIsAFailure) {
  const PrivateBus bus;
  const ConnectionPtr other = connected(bus.address());
  const ConnectionPtr ours = connected(bus.address());
  ASSERT_TRUE(other != nullptr && ours != nullptr);
  const VariantPtr named(g_dbus_connection_call_sync(
      other.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", kBusName, 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, 5000,
      nullptr, nullptr));
  ASSERT_NE(named, nullptr);
  g_dbus_connection_add_filter(other.get(), answerWithANumber, nullptr, nullptr);

  InstanceClient client = InstanceClient::onBus(ours.get());
  EXPECT_TRUE(client.isRunning());
  const InstanceClient::Reply status = client.status();
  EXPECT_EQ(status.outcome, InstanceClient::Outcome::kFailed);
  EXPECT_THAT(status.text, HasSubstr("(s)"));
  EXPECT_EQ(client.action("stop", 5000).outcome, InstanceClient::Outcome::kFailed);
  EXPECT_EQ(client.activate().outcome, InstanceClient::Outcome::kFailed);
}

}  // namespace
}  // namespace linux_host
