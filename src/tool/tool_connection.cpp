// BVToolConnection: what both ends share (the pipe folder, archive classes,
// the operation table, tear-down).
#include <belvane/BVConstants.h>
#include <belvane/BVToolConnection.h>
#include "tool/message_format.h"

#include "foundation/user_folder.h"
#include "model/model_archiving.h"
#include "tool/tool_exception.h"

#include <glib.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

const char* const kBVPlayerToolMsgSelector = "kBVPlayerToolMsgSelector";
const char* const kBVPlayerToolMsgArgs = "kBVPlayerToolMsgArgs";

const BVRemoteOperation* BVRemoteInterface::find(const std::string& selector) const {
  for (auto& op : operations_)
    if (op.selector == selector) return &op;
  return nullptr;
}

BVToolConnection::BVToolConnection() { belvane::detail::registerToolExceptionClass(); }

BVToolConnection::~BVToolConnection() {
  disconnect();
  for (int* fd : {&serverInputFd_, &serverOutputFd_, &input_, &reply_, &output_}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
  if (inputWatch_) inputWatch_->cancel();
  for (auto& path : {inputPipePath_, outputPipePath_, replyPipePath_})
    if (!path.empty()) unlink(path.c_str());
}

std::string BVToolConnection::pipeDirectory() { return belvane::detail::userFolderPath(); }

bool BVToolConnection::preparePipeDirectory(BVErrorRef* error) {
  std::string why;
  if (!belvane::detail::prepareUserFolder(&why).empty()) return true;
  if (error)
    *error = BVError::withDescription(BVBelvaneErrorDomain, 5602,
                                      "The player tool's pipe folder " + pipeDirectory() + " cannot be used: " + why);
  return false;
}

void BVToolConnection::removePipes(int pid) {
  for (const char* name : {"/bpt_input_", "/bpt_output_", "/bpt_reply_"})
    unlink((pipeDirectory() + name + std::to_string(pid)).c_str());
}

void BVToolConnection::removeStalePipes() {
  // Pipes of a tool whose process is gone: its host was killed, so nobody
  // removed them. A live process keeps its pipes, whoever it is.
  GDir* dir = g_dir_open(pipeDirectory().c_str(), 0, nullptr);
  if (!dir) return;
  while (const char* name = g_dir_read_name(dir)) {
    int pid = 0;
    for (const char* prefix : {"bpt_input_", "bpt_output_", "bpt_reply_"}) {
      if (g_str_has_prefix(name, prefix)) {
        char* end = nullptr;
        long value = std::strtol(name + std::strlen(prefix), &end, 10);
        if (end && *end == '\0' && value > 0 && value < INT32_MAX) pid = int(value);
      }
    }
    if (pid > 0 && kill(pid, 0) != 0 && errno == ESRCH) unlink((pipeDirectory() + "/" + name).c_str());
  }
  g_dir_close(dir);
}

const std::set<std::string, std::less<>>& BVToolConnection::archivableClasses() {
  static const std::set<std::string, std::less<>> classes = [] {
    belvane::detail::registerToolExceptionClass();
    auto set = belvane::detail::BVModelArchivableClasses();
    set.insert("NSException");
    return set;
  }();
  return classes;
}
