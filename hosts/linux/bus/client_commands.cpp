// SPDX-License-Identifier: MIT
#include "hosts/linux/bus/client_commands.h"

#include <ostream>

#include "hosts/linux/base/json_values.h"
#include "hosts/linux/files/file_manager.h"

namespace linux_host {
namespace {

// Long enough for an unconfirmed start and for finishing a file on a slow disk.
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
  err << "record-audio: The running Record Audio gave an unexpected answer: " << reply.text << "\n";
  return kExitFailed;
}

// A text in the status; empty when it is not there.
std::string textAt(const Json& status, const char* key) {
  const auto entry = status.find(key);
  const auto* text = entry == status.end() ? nullptr : entry->get_ptr<const std::string*>();
  return text == nullptr ? std::string() : *text;
}

// Returns the exit status of a stop.
int printSavedFile(InstanceClient& client, std::ostream& out, std::ostream& err) {
  const InstanceClient::Reply reply = client.status();
  const auto status = parsedJsonObject(reply.text);
  if (reply.outcome != InstanceClient::Outcome::kDone || !status) {
    err << "record-audio: The recording has ended, and the running program with it. Its log says "
           "whether there is a file.\n";
    return kExitDone;
  }
  if (const std::string unsaved = textAt(*status, "unsavedFile"); !unsaved.empty()) {
    err << "record-audio: The recording could not be saved: " << textAt(*status, "problem")
        << "\nrecord-audio: It is kept as " << unsaved
        << ". Fix that, then save it with record-audio --recover.\n";
    return kExitFailed;
  }
  const std::string file = textAt(*status, "outputFile");
  // fileExists() does not hang on a network folder that hangs.
  if (file.empty() || !LinuxFileManager().fileExists(file)) {
    err << "record-audio: The recording has ended, but no file was saved. The log of the running "
           "program says why.\n";
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
