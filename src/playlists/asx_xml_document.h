// ASXXMLDocument: a libxml2 document parsed from playlist text, safely (no
// network, no external entities or DTDs, libxml2's own limits on depth and
// entity expansion) and silently: parser and XPath errors are collected
// here instead of being printed.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace belvane::detail {

class ASXXMLDocument {
 public:
  // Parses UTF-8 text.
  explicit ASXXMLDocument(const std::string& text);
  ~ASXXMLDocument();
  ASXXMLDocument(const ASXXMLDocument&) = delete;
  ASXXMLDocument& operator=(const ASXXMLDocument&) = delete;

  // Whether the text was a well-formed document.
  bool parsed() const { return doc_ != nullptr && root() != nullptr; }
  xmlNodePtr root() const { return doc_ ? xmlDocGetRootElement(doc_) : nullptr; }
  // An error the parser reported without refusing the document (a namespace
  // error, say).
  const std::optional<std::string>& recoverableError() const { return recoverableError_; }

  // The nodes that the XPath expression selects from context, in document
  // order; nothing with *error set when evaluation fails.
  std::optional<std::vector<xmlNodePtr>> evaluate(const char* expression, xmlNodePtr context, std::string* error);

  // The value of an element's own unprefixed attribute, or nothing.
  static std::optional<std::string> attribute(xmlNodePtr element, const char* name);

 private:
  static void parserError(void* userData, xmlErrorPtr error);
  static void xpathError(void* userData, xmlErrorPtr error);

  xmlDocPtr doc_ = nullptr;
  xmlXPathContextPtr xpath_ = nullptr;
  std::map<std::string, xmlXPathCompExprPtr> compiled_;
  std::optional<std::string> recoverableError_;
};

// An error as one line: "line N: message".
std::string describeXMLError(const xmlError* error);

}  // namespace belvane::detail
