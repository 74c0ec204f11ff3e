// SPDX-License-Identifier: MIT
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

// Of an entry of the status; empty when there is none.
std::string textAt(const Json& status, const char* key) {
  const auto entry = status.find(key);
  const auto* text = entry == status.end() ? nullptr : entry->get_ptr<const std::string*>();
  return text == nullptr ? std::string() : *text;
}

// Returns the exit status of a stop.
int printSavedFile(InstanceClient& client, std::ostream& out, std::ostream& err) {
  const InstanceClient::Reply reply = client.status();
  std::string error;
  const auto status = parsedJsonObject(reply.text, &error);
  if (reply.outcome != InstanceClient::Outcome::kDone || !status) {
    err << "record-audio: The recording has ended, and the running program with it. Whether there "
           "is a file its log says.\n";
    return kExitDone;
  }
  if (const std::string unsaved = textAt(*status, "unsavedFile"); !unsaved.empty()) {
    err << "record-audio: The recording could not be saved: " << textAt(*status, "problem")
        << "\nrecord-audio: It is kept as " << unsaved
        << ". Save it with record-audio --recover when that is mended.\n";
    return kExitFailed;
  }
  const std::string file = textAt(*status, "outputFile");
  // A network folder that hangs holds nobody up here either.
  if (file.empty() || !LinuxFileManager().fileExists(file)) {
    err << "record-audio: The recording has ended, but no file was saved. What the running program "
           "wrote to its log says why.\n";
    return kExitFailed;
  }
  out << file << "\n";
  return kExitDone;
}

}  // namespace

int stopCommand(Instance& instance, std::ostream& out, std::ostream& err) {
  auto client = instance.find();
  if (!client) return notRunning(err);
  const int status = exitStatus(client->action("stop", kEndTimeout_ms), err);
  return status == kExitDone ? printSavedFile(*client, out, err) : status;
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
