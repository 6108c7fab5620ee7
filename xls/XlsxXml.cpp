#include "xls/XlsxXml.h"

#include <expat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace xls {

namespace {

struct ParseState {
  XML_Parser parser;
  XmlHandler* handler;
  int depth = 0;
  Status stop;  // why the parse was stopped by us rather than by expat
};

void Halt(ParseState* st, Status why) {
  if (st->stop.ok()) st->stop = std::move(why);
  XML_StopParser(st->parser, XML_FALSE);
}

void XMLCALL OnStart(void* data, const XML_Char* name, const XML_Char** attrs) {
  auto* st = static_cast<ParseState*>(data);
  if (++st->depth > kMaxXmlDepth) {
    Halt(st, Status::Corruption("elements nest deeper than " + std::to_string(kMaxXmlDepth)));
    return;
  }
  st->handler->Start(LocalName(name), const_cast<const char**>(attrs));
  if (!st->handler->failure.ok()) Halt(st, st->handler->failure);
}

void XMLCALL OnEnd(void* data, const XML_Char* name) {
  auto* st = static_cast<ParseState*>(data);
  --st->depth;
  st->handler->End(LocalName(name));
  if (!st->handler->failure.ok()) Halt(st, st->handler->failure);
}

void XMLCALL OnText(void* data, const XML_Char* s, int len) {
  auto* st = static_cast<ParseState*>(data);
  if (st->handler->wantText) st->handler->Text(std::string_view(s, static_cast<std::size_t>(len)));
}

void XMLCALL OnDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
  Halt(static_cast<ParseState*>(data),
       Status::Corruption("a document type declaration, which no workbook part has"));
}

class Parse {
 public:
  Parse(std::string_view what, XmlHandler* handler) : what_(what) {
    st_.parser = XML_ParserCreate(nullptr);
    st_.handler = handler;
    if (st_.parser == nullptr) return;
    XML_SetUserData(st_.parser, &st_);
    XML_SetElementHandler(st_.parser, OnStart, OnEnd);
    XML_SetCharacterDataHandler(st_.parser, OnText);
    XML_SetStartDoctypeDeclHandler(st_.parser, OnDoctype);
  }
  ~Parse() {
    if (st_.parser != nullptr) XML_ParserFree(st_.parser);
  }
  Parse(const Parse&) = delete;
  Parse& operator=(const Parse&) = delete;

  Status Feed(const char* data, std::size_t n, bool last) {
    if (st_.parser == nullptr) return Status::IOError("out of memory for an XML parser");
    // expat takes an int length: feed a large buffer in slices.
    do {
      std::size_t slice = std::min<std::size_t>(n, 1 << 30);
      n -= slice;
      if (XML_Parse(st_.parser, data, static_cast<int>(slice), last && n == 0) == XML_STATUS_ERROR)
        return Error();
      data += slice;
    } while (n > 0);
    return Status::OK();
  }

 private:
  Status Error() {
    std::string where = std::string(what_) + " line " +
                        std::to_string(XML_GetCurrentLineNumber(st_.parser)) + " column " +
                        std::to_string(XML_GetCurrentColumnNumber(st_.parser));
    if (!st_.stop.ok()) {
      if (st_.stop.code() != Status::Code::kCorruption) return st_.stop;
      return Status::Corruption(where + ": " + st_.stop.message());
    }
    return Status::Corruption(where + ": " + XML_ErrorString(XML_GetErrorCode(st_.parser)));
  }

  std::string_view what_;
  ParseState st_;
};

}  // namespace

const char* FindAttr(const char** attrs, std::string_view local) {
  for (; *attrs != nullptr; attrs += 2) {
    if (LocalName(*attrs) == local) return attrs[1];
  }
  return nullptr;
}

Status ParseXmlPart(ZipPartReader& zip, std::string_view part, XmlHandler* handler) {
  Parse parse(part, handler);
  Status s =
      zip.Read(part, [&](const char* data, std::size_t n) { return parse.Feed(data, n, false); });
  if (!s.ok()) return s;
  return parse.Feed("", 0, true);
}

Status ParseXmlText(std::string_view what, std::string_view text, XmlHandler* handler) {
  Parse parse(what, handler);
  return parse.Feed(text.data(), text.size(), true);
}

}  // namespace xls
