// BVToolConnection: the link between the host and the player tool process.
//
// The same class serves both ends. In the host (client) it launches the tool
// executable and opens two named pipes the tool made; each forwarded call is
// a request message written to the input pipe and answered by one reply on
// the output pipe, while the calling thread waits (at most timeout()). In the tool (server) it
// makes the pipes, serves requests on its run loop and invokes each on the
// vended object. Messages are a fixed 44-byte header and an archived payload
// (the wire format is private to the library: src/tool/message_format.h).
//
// Remote-callable operations are listed in a table per vended class
// (BVRemoteInterface) with their argument and return type codes; both ends
// use the table, the client to pack arguments and read results, the server
// to unpack and invoke.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVValue.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// The message header of the wire format (private to the library).
struct bv_player_tool_msg_header_s;

// An exception raised by a vended object; it travels back to the client as
// a type-2 reply and is logged there, never rethrown.
class BV_EXPORT BVToolException : public std::runtime_error {
 public:
  BVToolException(std::string name, std::string reason)
      : std::runtime_error(reason), name_(std::move(name)), reason_(std::move(reason)) {}
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string name_, reason_;
};

// One remote-callable operation: its selector, one type code per argument
// ("f", "d", "c", "C", "i", "I", "l", "L", "@", or another code whose
// argument travels as the null object) and its return type code ('v' for
// none). invoke runs it on the server; scalar results are numbers.
struct BV_EXPORT BVRemoteOperation {
  std::string selector;
  std::string argumentTypes;
  char returnType;
  std::function<BVValue(const BVArray& arguments)> invoke;
};

class BV_EXPORT BVRemoteInterface {
 public:
  BVRemoteInterface() = default;
  explicit BVRemoteInterface(std::vector<BVRemoteOperation> operations) : operations_(std::move(operations)) {}
  const BVRemoteOperation* find(const std::string& selector) const;
  void add(BVRemoteOperation operation) { operations_.push_back(std::move(operation)); }
  const std::vector<BVRemoteOperation>& operations() const { return operations_; }

 private:
  std::vector<BVRemoteOperation> operations_;
};

// An object that a connection can vend (server) or take signatures from (client).
class BV_EXPORT BVVendable {
 public:
  virtual ~BVVendable() = default;
  virtual const BVRemoteInterface& remoteInterface() = 0;
};

// How long the host waits for the player tool by default, in seconds.
inline constexpr double kBVToolConnectionDefaultTimeout = 5.0;

class BV_EXPORT BVToolConnection {
 public:
  BVToolConnection();
  ~BVToolConnection();
  BVToolConnection(const BVToolConnection&) = delete;
  BVToolConnection& operator=(const BVToolConnection&) = delete;

  void setServerToolPath(const std::string& path) { toolPath_ = path; }
  const std::string& serverToolPath() const { return toolPath_; }
  // Not owned.
  void setVendedObject(BVVendable* object) { vendedObject_ = object; }
  BVVendable* vendedObject() const { return vendedObject_; }

  // Client: how long the host waits for the tool, in seconds (default
  // kBVToolConnectionDefaultTimeout; negative: for ever). It bounds connect()
  // (the tool making its pipes) and each call as a whole (request, reply
  // header and payload). A tool that does not answer in time is treated like
  // one that died: the call gives zero or nothing, the tool is killed and
  // reaped, and terminationError() says so.
  void setTimeout(double seconds) { timeout_ = seconds; }
  double timeout() const { return timeout_; }

  // Client: launches the tool and opens its pipes; an error (5601, 5602) or nullptr.
  BVErrorRef connect();
  // Client: ends the connection; safe when not connected.
  void disconnect();
  // Client: why the tool went without being asked to (5602: "The player tool
  // ended unexpectedly.", or it stopped answering); nullptr after connect()
  // and when the host disconnected it.
  const BVErrorRef& terminationError() const { return terminationError_; }
  int serverProcessID() const { return pid_; }
  bool isConnected() const { return pid_ > 0; }
  // Messages sent to the result are forwarded to the server.
  BVToolConnection& send() { return *this; }

  // Client: sends selector with arguments packed by the vended object's
  // signature and returns the result: a number for scalar return types, the
  // reply object for '@', nothing for none. A failed call gives zero or
  // nothing, logged.
  BVValue forwardInvocation(const std::string& selector, const BVArray& arguments);
  // Client: sends selector with object arguments; scalar results as numbers.
  BVValue invokeOnServer(const std::string& selector, const BVArray& objectArguments);
  // Client: sends a message dictionary and reads the reply. False when the
  // exchange failed (the connection is then disconnected).
  bool invokeOnServer(const BVDictionary& message, bv_player_tool_msg_header_s* replyHeader, BVValue* reply);

  // Server: makes and opens the pipes and serves requests on the calling
  // thread's run loop. An error when the pipe folder is not ours.
  BVErrorRef configureAsServer();
  // Server: end the process (stop the run loop) after the reply in hand.
  void setTerminate(bool terminate) { terminate_ = terminate; }
  // Server: called when the run loop should end (the host disconnected).
  void setTerminationHandler(std::function<void()> handler) { terminationHandler_ = std::move(handler); }

  // The pipe folder, private to the user: "$XDG_RUNTIME_DIR/com.brambleside.ettd"
  // when that variable is set, else "<tmp>/com.brambleside.ettd-<uid>"; and
  // preparing it, creating it 0700 when missing. When it is not safe to use
  // (a symbolic link, someone else's, open to others) a private folder made
  // with mkdtemp takes its place for this process and the tool it starts.
  // Only when no folder at all can be made is *error a 5602 error.
  static std::string pipeDirectory();
  static bool preparePipeDirectory(BVErrorRef* error);
  // Removes the pipe files of tool processes that no longer exist (their
  // host was killed before it could remove them); connect() does it.
  static void removeStalePipes();

  // Classes the connection's archives may hold.
  static const std::set<std::string, std::less<>>& archivableClasses();

 private:
  void _taskDidTerminate();
  // Client: reaps the tool (killing it at once with kill, else after it had
  // a moment to end by itself) and closes the pipes.
  void endTool(bool kill);
  static void removePipes(int pid);
  // Client: writes one request and reads its reply.
  bool exchange(std::span<const uint8_t> payload, bv_player_tool_msg_header_s* replyHeader, BVValue* reply);
  void serverInputReadable();
  void serveRequest(std::span<const uint8_t> payload);

  std::string toolPath_;
  double timeout_ = kBVToolConnectionDefaultTimeout;
  BVErrorRef terminationError_;
  int pid_ = 0;
  int pidfd_ = -1;
  BVRunLoopSourceRef childWatch_;
  int serverInputFd_ = -1;   // client: requests are written here (input pipe)
  int serverOutputFd_ = -1;  // client: replies are read here (output pipe)
  int input_ = -1, reply_ = -1, output_ = -1;  // server: input, output and reply pipes
  std::string inputPipePath_, outputPipePath_, replyPipePath_;
  std::vector<uint8_t> readData_;
  BVRunLoopSourceRef inputWatch_;
  bool serving_ = false;  // server: a request is being invoked
  // Archives of requests without arguments, which never change: by selector
  // (client) and the selector of such an archive (server).
  std::map<std::string, std::vector<uint8_t>, std::less<>> requestArchives_;
  std::map<std::string, std::string, std::less<>> requestSelectors_;
  bool terminate_ = false;
  std::function<void()> terminationHandler_;
  BVVendable* vendedObject_ = nullptr;
};
