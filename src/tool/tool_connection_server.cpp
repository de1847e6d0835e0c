// BVToolConnection, tool side: making the pipes and serving one request at a
// time on the run loop.
#include <belvane/BVArchive.h>
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVToolConnection.h>
#include "tool/message_format.h"

#include "tool/message_codec.h"
#include "tool/pipe_io.h"
#include "tool/tool_exception.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

constexpr const char* kServeName = "-[BVToolConnection serverInputFileHandleDidReadNotification:]";
// A reply that the client does not read within this time is dropped.
constexpr double kReplyWriteTimeout = 10.0;

int makeFifo(const std::string& path) {
  unlink(path.c_str());
  mkfifo(path.c_str(), 0660);
  return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

// Requests of at most this size without arguments are remembered by their
// bytes, up to this many, so that polling getters skip unarchiving.
constexpr size_t kMaxRememberedRequestBytes = 512;
constexpr size_t kMaxRememberedRequests = 64;

// Marks a request as being served for the life of the scope.
struct ServingScope {
  explicit ServingScope(bool& flag) : flag_(flag) { flag_ = true; }
  ~ServingScope() { flag_ = false; }
  ServingScope(const ServingScope&) = delete;
  ServingScope& operator=(const ServingScope&) = delete;
  bool& flag_;
};

}  // namespace

BVErrorRef BVToolConnection::configureAsServer() {
  BVErrorRef error;
  if (!preparePipeDirectory(&error)) return error;
  std::string dir = pipeDirectory();
  std::string pid = std::to_string(getpid());
  inputPipePath_ = dir + "/bpt_input_" + pid;
  outputPipePath_ = dir + "/bpt_output_" + pid;
  replyPipePath_ = dir + "/bpt_reply_" + pid;
  input_ = makeFifo(inputPipePath_);
  reply_ = makeFifo(outputPipePath_);
  output_ = makeFifo(replyPipePath_);
  if (input_ < 0 || reply_ < 0) {
    return BVError::withDescription(BVBelvaneErrorDomain, 5602,
                                    std::string("The player tool's pipes could not be made: ") + std::strerror(errno));
  }
  // The watch may recurse: it then stays in the loop's poll set while a
  // request is served, instead of being taken out and put back (which wakes
  // the loop through its eventfd, two extra system calls per request).
  // serverInputReadable() guards against a nested dispatch itself.
  inputWatch_ = BVRunLoop::current().watchFD(
      input_, G_IO_IN,
      [this](int) {
        serverInputReadable();
        return true;
      },
      true);
  return nullptr;
}

void BVToolConnection::serverInputReadable() {
  uint8_t buffer[64 * 1024];
  if (serving_) {
    // A nested run of this loop while a request is invoked: the client sent
    // more before reading its reply. Such bytes are dropped, as are any past
    // the first complete message.
    while (read(input_, buffer, sizeof buffer) == ssize_t(sizeof buffer)) {
    }
    return;
  }
  // A short read means the pipe is empty, so one read usually takes the
  // whole request (the client writes it in one go).
  while (true) {
    ssize_t n = read(input_, buffer, sizeof buffer);
    if (n > 0) readData_.insert(readData_.end(), buffer, buffer + n);
    if (n != ssize_t(sizeof buffer)) break;
  }
  if (readData_.size() < sizeof(bv_player_tool_msg_header_s)) return;
  bv_player_tool_msg_header_s header;
  std::memcpy(&header, readData_.data(), sizeof header);
  if (header.length < 0 || header.length > belvane::detail::kMaxToolPayloadBytes) {
    // Refused unread; the client gets an empty reply so it does not wait.
    BVLog("Exception in %s: %s", kServeName, "a request's payload length is out of bounds");
    readData_.clear();
    ServingScope serving(serving_);
    serveRequest({});
    return;
  }
  size_t total = sizeof header + size_t(header.length);
  if (readData_.size() < total) return;
  // The client never sends a second request before reading the first reply,
  // so bytes past the first message are dropped.
  {
    ServingScope serving(serving_);
    serveRequest(std::span(readData_).subspan(sizeof header, size_t(header.length)));
  }
  readData_.clear();
}

void BVToolConnection::serveRequest(std::span<const uint8_t> payload) {
  bv_player_tool_msg_header_s reply{};
  std::vector<uint8_t> replyPayload;
  BVValue message;
  const std::string* selector = nullptr;
  const BVArray* elements = nullptr;
  std::string_view bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
  if (auto known = requestSelectors_.find(bytes); known != requestSelectors_.end()) {
    selector = &known->second;
  } else if (!payload.empty()) {
    auto decoded = belvane::BVUnarchive(payload, archivableClasses());
    if (decoded && decoded->dictionary()) {
      message = *decoded;
      selector = message[kBVPlayerToolMsgSelector].string();
      elements = message[kBVPlayerToolMsgArgs].array();
    } else {
      BVLog("Exception in %s: %s", kServeName, "the request could not be unarchived");
    }
  }
  const BVRemoteOperation* op = (selector && vendedObject_) ? vendedObject_->remoteInterface().find(*selector) : nullptr;
  // Remember an argument-free request by its bytes: it is served the same
  // way every time.
  if (op && !message.isNone() && (!elements || elements->empty()) && payload.size() <= kMaxRememberedRequestBytes &&
      requestSelectors_.size() < kMaxRememberedRequests)
    requestSelectors_.emplace(std::string(bytes), *selector);
  if (op) {
    BVArray arguments;
    arguments.reserve(op->argumentTypes.size());
    for (size_t i = 0; i < op->argumentTypes.size(); ++i) {
      BVValue element = (elements && i < elements->size()) ? (*elements)[i] : BVValue(BVNull{});
      arguments.push_back(belvane::detail::unpackArgument(op->argumentTypes[i], element));
    }
    try {
      BVValue result = op->invoke(arguments);
      reply.returnType = op->returnType;
      if (op->returnType == '@') {
        if (!result.isNone()) replyPayload = belvane::BVArchivedData(result);  // empty when not archivable
      } else {
        belvane::detail::storeScalarResult(op->returnType, result, reply);
      }
    } catch (const BVToolException& e) {
      reply = {};
      reply.type = 2;
      replyPayload =
          belvane::BVArchivedData(BVValue(std::make_shared<belvane::detail::ToolExceptionObject>(e.name(), e.reason())));
    }
  }
  reply.length = int32_t(replyPayload.size());
  bool written = belvane::detail::writeMessage(reply_, std::span(reinterpret_cast<const uint8_t*>(&reply), sizeof reply),
                                               replyPayload, belvane::detail::PipeWait{0, -1, kReplyWriteTimeout});
  if (!written) BVLog("Exception in %s: %s", kServeName, "the reply could not be written");
  if (terminate_) {
    if (terminationHandler_)
      terminationHandler_();
    else
      BVRunLoop::current().stop();
  }
}
