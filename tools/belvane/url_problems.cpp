// Reasons for failures, found by looking at the file or asking the server.
#include "url_problems.h"

#include <belvane/BVURLConnection.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace belvane::tool {

std::string fileProblem(const BVURL& url) {
  if (!url.isFileURL()) return {};
  std::string path = url.fileSystemPath();
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return path + ": " + std::strerror(errno);
  if (S_ISDIR(st.st_mode)) return path + " is a folder, not a file";
  if (!S_ISREG(st.st_mode)) return path + " is not a regular file";
  if (::access(path.c_str(), R_OK) != 0) return path + ": " + std::strerror(errno);
  if (st.st_size == 0) return path + " is empty";
  return {};
}

std::string describeError(const BVErrorRef& error) {
  if (!error) return {};
  return error->localizedDescription() + " (" + error->domain() + " " + std::to_string(error->code()) + ")";
}

std::string reachProblem(const BVURL& url, double seconds) {
  if (url.isFileURL()) return fileProblem(url);
  // Below a tenth of a second a request could only time out itself.
  if (!(seconds >= 0.1)) return {};
  BVURLRequest request(url, seconds);
  request.httpMethod = "HEAD";
  request.ignoreCache = true;
  std::shared_ptr<BVURLResponse> response;
  BVErrorRef error;
  BVURLConnection::sendSynchronousRequest(request, &response, &error);
  if (error) return describeError(error);
  int status = response ? response->statusCode() : 0;
  if (status >= 400) return "the server answered " + std::to_string(status);
  return {};
}

}  // namespace belvane::tool
