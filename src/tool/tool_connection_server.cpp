// BVToolConnection, tool side: making the pipes and serving one request at a
// time on the run loop.
#include <belvane/BVArchive.h>
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVToolConnection.h>

#include "tool/message_codec.h"
#include "tool/pipe_io.h"
#include "tool/tool_exception.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr const char* kServeName = "-[BVToolConnection serverInputFileHandleDidReadNotification:]";
// A reply that the client does not read within this time is dropped.
constexpr double kReplyWriteTimeout = 10.0;

int makeFifo(const std::string& path) {
  unlink(path.c_str());
  mkfifo(path.c_str(), 0660);
  return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

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
  inputWatch_ = BVRunLoop::current().watchFD(input_, G_IO_IN, [this](int) {
    serverInputReadable();
    return true;
  });
  return nullptr;
}

void BVToolConnection::serverInputReadable() {
  uint8_t buffer[64 * 1024];
  while (true) {
    ssize_t n = read(input_, buffer, sizeof buffer);
    if (n > 0) {
      readData_.insert(readData_.end(), buffer, buffer + n);
      continue;
    }
    break;
  }
  if (readData_.size() < sizeof(bv_player_tool_msg_header_s)) return;
  bv_player_tool_msg_header_s header;
  std::memcpy(&header, readData_.data(), sizeof header);
  if (header.length < 0 || header.length > belvane::detail::kMaxToolPayloadBytes) {
    // Refused unread; the client gets an empty reply so it does not wait.
    BVLog("Exception in %s: %s", kServeName, "a request's payload length is out of bounds");
    readData_.clear();
    serveRequest({});
    return;
  }
  size_t total = sizeof header + size_t(header.length);
  if (readData_.size() < total) return;
  // The client never sends a second request before reading the first reply,
  // so bytes past the first message are dropped.
  std::vector<uint8_t> payload(readData_.begin() + sizeof header, readData_.begin() + long(total));
  readData_.clear();
  serveRequest(payload);
}

void BVToolConnection::serveRequest(std::span<const uint8_t> payload) {
  bv_player_tool_msg_header_s reply{};
  std::vector<uint8_t> replyPayload;
  BVValue message;
  if (!payload.empty()) {
    auto decoded = belvane::BVUnarchive(payload, archivableClasses());
    if (decoded && decoded->dictionary()) {
      message = *decoded;
    } else {
      BVLog("Exception in %s: %s", kServeName, "the request could not be unarchived");
    }
  }
  const std::string* selector = message[kBVPlayerToolMsgSelector].string();
  const BVRemoteOperation* op = (selector && vendedObject_) ? vendedObject_->remoteInterface().find(*selector) : nullptr;
  if (op) {
    BVArray arguments;
    const BVArray* elements = message[kBVPlayerToolMsgArgs].array();
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
  bool written = belvane::detail::writeAll(reply_, reinterpret_cast<const uint8_t*>(&reply), sizeof reply, 0, -1,
                                           kReplyWriteTimeout) &&
                 (replyPayload.empty() || belvane::detail::writeAll(reply_, replyPayload.data(), replyPayload.size(),
                                                                     0, -1, kReplyWriteTimeout));
  if (!written) BVLog("Exception in %s: %s", kServeName, "the reply could not be written");
  if (terminate_) {
    if (terminationHandler_)
      terminationHandler_();
    else
      BVRunLoop::current().stop();
  }
}
