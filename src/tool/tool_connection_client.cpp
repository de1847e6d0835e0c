// BVToolConnection, host side: launching the tool, meeting it on its pipes,
// and forwarding calls.
#include <belvane/BVArchive.h>
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVToolConnection.h>
#include "foundation/user_folder.h"
#include "tool/message_format.h"

#include "tool/message_codec.h"
#include "tool/pipe_io.h"
#include "tool/tool_exception.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <chrono>
#include <vector>

extern char** environ;

namespace {

constexpr const char* kInvokeName = "-[BVToolConnection invokeOnServer:replyHeader:reply:]";

bool isExecutableFile(const std::string& path) {
  struct stat st {};
  return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

bool startsWith(const char* entry, std::string_view prefix) { return std::strncmp(entry, prefix.data(), prefix.size()) == 0; }

// The current environment with ECHOTRAP_TARGET_NAME=NO_XCS added or replaced,
// and the pipe folder this process prepared, so that the tool uses the same.
std::vector<std::string> toolEnvironment() {
  std::vector<std::string> env;
  for (char** e = environ; e && *e; ++e)
    if (!startsWith(*e, "ECHOTRAP_TARGET_NAME=") && !startsWith(*e, "BELVANE_USER_FOLDER=")) env.emplace_back(*e);
  env.emplace_back("ECHOTRAP_TARGET_NAME=NO_XCS");
  env.emplace_back(belvane::detail::userFolderEnvironmentEntry());
  return env;
}

}  // namespace

BVErrorRef BVToolConnection::connect() {
  if (pid_ > 0) return nullptr;
  if (!isExecutableFile(toolPath_)) {
    return BVError::create(BVBelvaneErrorDomain, 5601,
                           {{BVFilePathErrorKey, BVValue(toolPath_)},
                            {BVLocalizedDescriptionKey, BVValue("The player tool \"" + toolPath_ +
                                                                "\" is missing or not an executable file.")}});
  }
  BVErrorRef folderError;
  if (!preparePipeDirectory(&folderError)) return folderError;
  removeStalePipes();

  auto fail = [&](const std::string& reason) {
    endTool(true);
    return BVError::withDescription(BVBelvaneErrorDomain, 5602, reason);
  };

  std::vector<std::string> env = toolEnvironment();
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::string path = toolPath_;
  char* argv[] = {path.data(), nullptr};
  pid_t pid = 0;
  int rc = posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv, envp.data());
  if (rc != 0) return fail(std::string("The player tool could not be launched: ") + std::strerror(rc));
  pid_ = pid;
  pidfd_ = belvane::detail::openProcessHandle(pid_);
  int watchedPid = pid_;
  childWatch_ = BVRunLoop::current().watchChild(pid_, [this, watchedPid](int, int) {
    if (pid_ == watchedPid) _taskDidTerminate();
  });

  std::string input = pipeDirectory() + "/bpt_input_" + std::to_string(pid_);
  std::string output = pipeDirectory() + "/bpt_output_" + std::to_string(pid_);
  // The tool makes its pipes when it is ready; wait for them to appear, for
  // the tool's end, or for the time-out.
  if (!belvane::detail::waitForPaths(pipeDirectory(), {input, output}, {pid_, pidfd_, timeout_})) {
    if (belvane::detail::processHasExited(pid_, pidfd_)) return fail("The player tool ended before it opened its pipes.");
    return fail("The player tool did not open its pipes in time.");
  }

  serverInputFd_ = open(input.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  serverOutputFd_ = open(output.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (serverInputFd_ < 0 || serverOutputFd_ < 0) {
    std::string reason = std::string("The player tool's pipes could not be opened: ") + std::strerror(errno);
    for (int* fd : {&serverInputFd_, &serverOutputFd_})
      if (*fd >= 0) close(*fd), *fd = -1;
    return fail(reason);
  }
  terminationError_.reset();
  return nullptr;
}

void BVToolConnection::disconnect() {
  if (pid_ > 0 && !belvane::detail::processHasExited(pid_, pidfd_)) {
    invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue("disconnect")}}, nullptr, nullptr);
  }
  endTool(false);
}

void BVToolConnection::endTool(bool kill) {
  if (childWatch_) childWatch_->cancel();
  childWatch_.reset();
  if (pid_ > 0) {
    // A tool asked to disconnect ends by itself; one that does not (or that
    // no longer answers) is killed. Either way it is reaped here.
    const double grace = timeout_ < 0 ? 2.0 : std::min(timeout_, 2.0);
    if (kill || !belvane::detail::waitForExit(pid_, pidfd_, grace)) {
      ::kill(pid_, SIGKILL);
      belvane::detail::waitForExit(pid_, pidfd_, -1);
    }
    // A tool that ended normally removed its pipes; one that was killed could not.
    removePipes(pid_);
  }
  if (pidfd_ >= 0) close(pidfd_);
  pidfd_ = -1;
  pid_ = 0;
  for (int* fd : {&serverInputFd_, &serverOutputFd_}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

void BVToolConnection::_taskDidTerminate() {
  terminationError_ = BVError::withDescription(BVBelvaneErrorDomain, 5602, "The player tool ended unexpectedly.");
  disconnect();
}

bool BVToolConnection::invokeOnServer(const BVDictionary& message, bv_player_tool_msg_header_s* replyHeader,
                                      BVValue* reply) {
  if (reply) *reply = BVValue();
  if (replyHeader) std::memset(replyHeader, 0, sizeof *replyHeader);
  if (pid_ <= 0 || serverInputFd_ < 0) return false;
  std::vector<uint8_t> payload = belvane::BVArchivedData(BVValue(message));
  if (payload.empty()) {
    BVLog("Exception in %s: %s", kInvokeName, "the request's arguments cannot be archived");
    return false;
  }
  return exchange(payload, replyHeader, reply);
}

bool BVToolConnection::exchange(std::span<const uint8_t> payload, bv_player_tool_msg_header_s* replyHeader,
                                BVValue* reply) {
  if (reply) *reply = BVValue();
  if (replyHeader) std::memset(replyHeader, 0, sizeof *replyHeader);
  if (pid_ <= 0 || serverInputFd_ < 0) return false;

  auto lost = [&](const char* what) {
    // The pipes are out of step, or the tool is dead or does not answer in
    // time: either way it is of no more use. Close the pipes first so that
    // nothing more is sent, then end and reap the tool.
    const bool died = belvane::detail::processHasExited(pid_, pidfd_);
    BVLog("Exception in %s: %s%s", kInvokeName, what, died ? "" : " (the player tool is ended)");
    terminationError_ = BVError::withDescription(
        BVBelvaneErrorDomain, 5602,
        died ? "The player tool ended unexpectedly." : "The player tool stopped answering and was ended.");
    for (int* fd : {&serverInputFd_, &serverOutputFd_}) {
      if (*fd >= 0) close(*fd);
      *fd = -1;
    }
    endTool(true);
    return false;
  };
  // One deadline for the whole exchange: writing, the reply's header, its payload.
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout_);
  auto wait = [&] {
    double left = timeout_ < 0 ? -1 : std::max(0.0, std::chrono::duration<double>(end - std::chrono::steady_clock::now()).count());
    return belvane::detail::PipeWait{pid_, pidfd_, left};
  };
  bv_player_tool_msg_header_s header{};
  header.length = int32_t(payload.size());
  if (!belvane::detail::writeMessage(serverInputFd_, std::span(reinterpret_cast<const uint8_t*>(&header), sizeof header),
                                     payload, wait()))
    return lost("the request could not be written");
  if (serverOutputFd_ < 0) return true;

  // The reply cannot be there before the tool has run the request, so wait
  // first; its payload usually arrives with the header in the same read.
  uint8_t buffer[4096];
  ssize_t got = belvane::detail::readAtLeast(serverOutputFd_, buffer, sizeof header, true, wait());
  if (got < 0) return lost("no reply came");
  bv_player_tool_msg_header_s in;
  std::memcpy(&in, buffer, sizeof in);
  if (in.length < 0 || in.length > belvane::detail::kMaxToolPayloadBytes)
    return lost("the reply's payload length is out of bounds");
  if (replyHeader) *replyHeader = in;

  BVValue object;
  if (in.length > 0) {
    // Only one reply is ever in flight: bytes past it would be stray, and are dropped.
    const size_t length = size_t(in.length);
    const size_t have = std::min(size_t(got) - sizeof in, length);
    std::span<const uint8_t> bytes(buffer + sizeof in, have);
    std::vector<uint8_t> large;
    if (have < length) {
      large.resize(length);
      std::memcpy(large.data(), buffer + sizeof in, have);
      if (belvane::detail::readAtLeast(serverOutputFd_, std::span(large).subspan(have), length - have, false, wait()) < 0)
        return lost("the reply was cut short");
      bytes = large;
    }
    auto decoded = belvane::BVUnarchive(bytes, archivableClasses());
    if (!decoded) {
      BVLog("Exception in %s: %s", kInvokeName, "the reply could not be unarchived");
    } else {
      object = *decoded;
    }
  }
  if (in.type == 2) {
    auto exception = object.objectAs<belvane::detail::ToolExceptionObject>();
    BVLog("(Note: this exception originated on the server) %s", exception ? exception->reason().c_str() : "(unknown)");
    object = BVValue();
  }
  if (reply) *reply = object;
  return true;
}

namespace {

// At most this many argument-free requests keep their archive.
constexpr size_t kMaxCachedRequests = 64;

// The archive of {selector, no arguments}: made once per selector, as
// polling getters send the same bytes on every call.
const std::vector<uint8_t>* argumentFreeRequest(std::map<std::string, std::vector<uint8_t>, std::less<>>& cache,
                                                const std::string& selector) {
  if (auto it = cache.find(selector); it != cache.end()) return &it->second;
  if (cache.size() >= kMaxCachedRequests) return nullptr;
  std::vector<uint8_t> archive = belvane::BVArchivedData(
      BVValue(BVDictionary{{kBVPlayerToolMsgSelector, BVValue(selector)}, {kBVPlayerToolMsgArgs, BVValue(BVArray{})}}));
  if (archive.empty()) return nullptr;
  return &cache.emplace(selector, std::move(archive)).first->second;
}

}  // namespace

BVValue BVToolConnection::forwardInvocation(const std::string& selector, const BVArray& arguments) {
  const BVRemoteOperation* op = vendedObject_ ? vendedObject_->remoteInterface().find(selector) : nullptr;
  if (!op) {
    BVLog("BVToolConnection cannot forward %s: no signature for it", selector.c_str());
    return BVValue();
  }
  bv_player_tool_msg_header_s header{};
  BVValue reply;
  const std::vector<uint8_t>* cached = nullptr;
  if (op->argumentTypes.empty() && pid_ > 0) cached = argumentFreeRequest(requestArchives_, selector);
  if (cached) {
    exchange(*cached, &header, &reply);
  } else {
    BVArray packed;
    for (size_t i = 0; i < op->argumentTypes.size(); ++i)
      packed.push_back(
          belvane::detail::packArgument(op->argumentTypes[i], i < arguments.size() ? arguments[i] : BVValue()));
    invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue(selector)}, {kBVPlayerToolMsgArgs, BVValue(packed)}},
                   &header, &reply);
  }
  if (header.returnType == '@') return reply;
  return belvane::detail::loadScalarResult(header);
}

BVValue BVToolConnection::invokeOnServer(const std::string& selector, const BVArray& objectArguments) {
  bv_player_tool_msg_header_s header{};
  BVValue reply;
  const std::vector<uint8_t>* cached = nullptr;
  if (objectArguments.empty() && pid_ > 0) cached = argumentFreeRequest(requestArchives_, selector);
  if (cached) {
    exchange(*cached, &header, &reply);
  } else {
    invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue(selector)},
                                {kBVPlayerToolMsgArgs, BVValue(objectArguments)}},
                   &header, &reply);
  }
  if (belvane::detail::isScalarTypeCode(header.returnType)) return belvane::detail::loadScalarResult(header);
  return reply;
}
