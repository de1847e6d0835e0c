// ASXXMLDocument over libxml2.
#include "playlists/asx_xml_document.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <mutex>

namespace belvane::detail {

namespace {

// Errors go to the collector of the parse or evaluation running on this
// thread; libxml2 then prints nothing itself.
thread_local std::optional<std::string>* tCollector = nullptr;

void collect(const xmlError* error) {
  if (!tCollector || !error || error->level < XML_ERR_ERROR) return;
  if (!*tCollector) *tCollector = describeXMLError(error);
}

// Routes libxml2's structured errors on this thread to a collector for the
// scope's life.
class ErrorScope {
 public:
  explicit ErrorScope(std::optional<std::string>* collector)
      : previousCollector_(tCollector), previousHandler_(xmlStructuredError), previousContext_(xmlStructuredErrorContext) {
    tCollector = collector;
    xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr error) { collect(error); });
  }
  ~ErrorScope() {
    xmlSetStructuredErrorFunc(previousContext_, previousHandler_);
    tCollector = previousCollector_;
  }

 private:
  std::optional<std::string>* previousCollector_;
  xmlStructuredErrorFunc previousHandler_;
  void* previousContext_;
};

void initializeLibXML() {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
}

}  // namespace

std::string describeXMLError(const xmlError* error) {
  std::string message = error->message ? error->message : "unknown error";
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) message.pop_back();
  return "line " + std::to_string(error->line) + ": " + message;
}

void ASXXMLDocument::parserError(void*, xmlErrorPtr error) { collect(error); }
void ASXXMLDocument::xpathError(void*, xmlErrorPtr error) { collect(error); }

ASXXMLDocument::ASXXMLDocument(const std::string& text) {
  if (text.size() > size_t(INT_MAX)) return;
  initializeLibXML();
  std::optional<std::string> firstError;
  ErrorScope scope(&firstError);
  xmlParserCtxtPtr ctxt = xmlNewParserCtxt();
  if (!ctxt) return;
  ctxt->sax->serror = &ASXXMLDocument::parserError;
  // No network, no DTD loading, no entity substitution (so no external
  // entities); entity-expansion limits stay on (no XML_PARSE_HUGE).
  doc_ = xmlCtxtReadMemory(ctxt, text.data(), int(text.size()), nullptr, "UTF-8",
                           XML_PARSE_NONET | XML_PARSE_NOWARNING | XML_PARSE_COMPACT);
  xmlFreeParserCtxt(ctxt);
  if (doc_ && !root()) {
    xmlFreeDoc(doc_);
    doc_ = nullptr;
  }
  if (doc_) recoverableError_ = firstError;
}

ASXXMLDocument::~ASXXMLDocument() {
  for (auto& [expression, compiled] : compiled_) xmlXPathFreeCompExpr(compiled);
  if (xpath_) xmlXPathFreeContext(xpath_);
  if (doc_) xmlFreeDoc(doc_);
}

std::optional<std::vector<xmlNodePtr>> ASXXMLDocument::evaluate(const char* expression, xmlNodePtr context,
                                                                std::string* error) {
  if (!doc_) {
    if (error) *error = "no document";
    return std::nullopt;
  }
  std::optional<std::string> firstError;
  ErrorScope scope(&firstError);
  if (!xpath_) {
    xpath_ = xmlXPathNewContext(doc_);
    if (!xpath_) {
      if (error) *error = "out of memory";
      return std::nullopt;
    }
    xpath_->error = &ASXXMLDocument::xpathError;
    // Numbers the elements so that node sets sort in linear time.
    xmlXPathOrderDocElems(doc_);
  }
  auto& compiled = compiled_[expression];
  if (!compiled) compiled = xmlXPathCompile(reinterpret_cast<const xmlChar*>(expression));
  xmlXPathObjectPtr result = nullptr;
  if (compiled) {
    xpath_->node = context;
    result = xmlXPathCompiledEval(compiled, xpath_);
  }
  if (!result || result->type != XPATH_NODESET) {
    if (error) *error = firstError.value_or("the expression did not select nodes");
    if (result) xmlXPathFreeObject(result);
    return std::nullopt;
  }
  std::vector<xmlNodePtr> nodes;
  if (xmlNodeSetPtr set = result->nodesetval) nodes.assign(set->nodeTab, set->nodeTab + set->nodeNr);
  xmlXPathFreeObject(result);
  return nodes;
}

std::optional<std::string> ASXXMLDocument::attribute(xmlNodePtr element, const char* name) {
  if (!element || element->type != XML_ELEMENT_NODE) return std::nullopt;
  for (xmlAttrPtr attr = element->properties; attr; attr = attr->next) {
    if (attr->ns || !xmlStrEqual(attr->name, reinterpret_cast<const xmlChar*>(name))) continue;
    xmlChar* value = xmlNodeListGetString(element->doc, attr->children, 1);
    std::string result = value ? reinterpret_cast<const char*>(value) : "";
    xmlFree(value);
    return result;
  }
  return std::nullopt;
}

}  // namespace belvane::detail
