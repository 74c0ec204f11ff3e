#include "hosts/linux/bus/client_commands.h"

#include <ostream>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/files/file_manager.h"

namespace linux_host {
namespace {

// A start not yet confirmed, a file to finish on a slow disk: all of it fits in here.
constexpr int kEndTimeout_ms = 60000;

int notRunning(std::ostream& err) {
  err << "record-audio: Record Audio is not running.\n";
  return kExitNothingThere;
}

int exitStatus(const InstanceClient::Reply& reply, std::ostream& err) {
  switch (reply.outcome) {
    case InstanceClient::Outcome::kDone:
      return kExitDone;
    case InstanceClient::Outcome::kNotRunning:
      return notRunning(err);
    case InstanceClient::Outcome::kNothingRecorded:
      err << "record-audio: Nothing is being recorded.\n";
      return kExitNothingThere;
    case InstanceClient::Outcome::kFailed:
      break;
  }
  err << "record-audio: The running Record Audio does not answer as it should: " << reply.text
      << "\n";
  return kExitFailed;
}

void printSavedFile(InstanceClient& client, std::ostream& out, std::ostream& err) {
  const InstanceClient::Reply reply = client.status();
  std::string error;
  const auto status = parsedJsonObject(reply.text, &error);
  if (reply.outcome != InstanceClient::Outcome::kDone || !status) {
    err << "record-audio: The recording has ended, and the running program with it. Whether there "
           "is a file its log says.\n";
    return;
  }
  const auto file = status->find("outputFile");
  const auto* path = file == status->end() ? nullptr : file->get_ptr<const std::string*>();
  // A network folder that hangs holds nobody up here either.
  if (path != nullptr && LinuxFileManager().fileExists(*path)) {
    out << *path << "\n";
  } else {
    err << "record-audio: The recording has ended, but no file was saved. What the running program "
           "wrote to its log says why.\n";
  }
}

}  // namespace

int stopCommand(Instance& instance, std::ostream& out, std::ostream& err) {
  auto client = instance.find();
  if (!client) return notRunning(err);
  const int status = exitStatus(client->action("stop", kEndTimeout_ms), err);
  if (status == kExitDone) printSavedFile(*client, out, err);
  return status;
}

int cancelCommand(Instance& instance, std::ostream& err) {
  auto client = instance.find();
  if (!client) return notRunning(err);
  return exitStatus(client->action("cancel", kEndTimeout_ms), err);
}

int statusCommand(Instance& instance, std::ostream& out, std::ostream& err) {
  auto client = instance.find();
  if (!client) return notRunning(err);
  const InstanceClient::Reply reply = client->status();
  if (reply.outcome == InstanceClient::Outcome::kDone) out << reply.text << "\n";
  return exitStatus(reply, err);
}

}  // namespace linux_host
