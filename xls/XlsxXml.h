// Streaming XML for the parts of an Office Open XML workbook, over expat: a part is parsed
// as it inflates, so a 100 MB worksheet never exists as a tree or even as one string.
//
// Names reach the handler without their namespace prefix ("x:c" and "c" are both "c"):
// writers differ in prefixes, and transitional and strict files differ in namespace names,
// while the local names are the same in all of them.
// Limits: no document type declarations (a workbook part has none, and entities are how
// XML bombs grow), nesting at most kMaxXmlDepth.
#pragma once

#include <string_view>

#include "xls/Status.h"
#include "xls/XlsxZip.h"

namespace xls {

constexpr int kMaxXmlDepth = 256;

class XmlHandler {
 public:
  virtual ~XmlHandler() = default;
  // attrs: name, value, name, value, ..., nullptr (expat's layout), names still prefixed.
  virtual void Start(std::string_view name, const char** attrs) = 0;
  virtual void End(std::string_view name) = 0;
  // Character data, in pieces, delivered only while wantText is true.
  virtual void Text(std::string_view) {}

  bool wantText = false;
  // Set by a handler to stop the parse with that status.
  Status failure;
};

// The name after its prefix.
inline std::string_view LocalName(std::string_view name) {
  auto colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}
// The value of the attribute of that local name, nullptr when absent.
const char* FindAttr(const char** attrs, std::string_view local);

// Parses the part through handler. Corruption names the part, line and column.
Status ParseXmlPart(ZipPartReader& zip, std::string_view part, XmlHandler* handler);
// The same over text in memory (tests and small inputs).
Status ParseXmlText(std::string_view what, std::string_view text, XmlHandler* handler);

}  // namespace xls
