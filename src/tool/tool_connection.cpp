// BVToolConnection: what both ends share (the pipe folder, archive classes,
// the operation table, tear-down).
#include <belvane/BVConstants.h>
#include <belvane/BVToolConnection.h>

#include "model/model_archiving.h"
#include "tool/tool_exception.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

std::string BVToolConnection::pipeDirectory() {
  // Read each time (not GLib's cached value) so the folder follows $TMPDIR.
  const char* tmp = g_getenv("TMPDIR");
  return std::string(tmp && *tmp ? tmp : "/tmp") + "/com.brambleside.ettd";
}

bool BVToolConnection::preparePipeDirectory(BVErrorRef* error) {
  std::string dir = pipeDirectory();
  auto refuse = [&](const std::string& why) {
    if (error)
      *error = BVError::withDescription(BVBelvaneErrorDomain, 5602,
                                        "The player tool's pipe folder " + dir + " cannot be used: " + why);
    return false;
  };
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return refuse(std::strerror(errno));
  struct stat st {};
  if (lstat(dir.c_str(), &st) != 0) return refuse(std::strerror(errno));
  if (S_ISLNK(st.st_mode)) return refuse("it is a symbolic link.");
  if (!S_ISDIR(st.st_mode)) return refuse("it is not a folder.");
  if (st.st_uid != geteuid()) return refuse("it belongs to another user.");
  if (st.st_mode & 077) return refuse("other users have access to it.");
  return true;
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
