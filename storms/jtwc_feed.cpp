#include "storms/jtwc_feed.hpp"

#include <expat.h>

#include <algorithm>
#include <memory>
#include <set>

#include "core/values/errors.hpp"
#include "storms/storm_http.hpp"
#include "storms/storm_time.hpp"
#include "storms/text_pattern.hpp"

namespace ombrine {

namespace {

constexpr std::size_t kMaxFeedDepth = 64;

// The streaming reader of one feed document; one parse per object.
struct JTWCActiveStormFeedParser {
  XML_Parser parser = nullptr;
  std::vector<JTWCActiveStormFeedItem> items;
  JTWCActiveStormFeedItem currentItem;
  std::string buffer;
  bool isParsingItem = false;
  bool foundRSSRoot = false;
  bool foundChannel = false;
  std::size_t depth = 0;
  std::string failure;

  void start(std::string_view rawName) {
    if (++depth > kMaxFeedDepth) {
      failure = "elements nested too deeply";
      XML_StopParser(parser, XML_FALSE);
      return;
    }
    const std::string name = lowerCased(rawName);
    if (name == "rss" || name == "rdf" || (name.size() >= 4 && name.ends_with(":rdf"))) foundRSSRoot = true;
    if (name == "channel") foundChannel = true;
    if (name == "item") {
      isParsingItem = true;
      currentItem = {};
    }
    buffer.clear();
  }

  void characters(std::string_view text) {
    if (isParsingItem) buffer.append(text);
  }

  void end(std::string_view rawName) {
    --depth;
    if (isParsingItem) {
      const std::string name = lowerCased(rawName);
      std::string text = trimmed(buffer);
      if (name == "title") {
        currentItem.title = std::move(text);
      } else if (name == "description") {
        currentItem.description = std::move(text);
      } else if (name == "guid") {
        currentItem.guid = std::move(text);
      } else if (name == "pubdate") {
        currentItem.publicationDate = parseRSSDate(text);
      } else if (name == "item") {
        items.push_back(std::move(currentItem));
        currentItem = {};
        isParsingItem = false;
      }
    }
    buffer.clear();
  }
};

void XMLCALL onStart(void* user, const XML_Char* name, const XML_Char**) {
  static_cast<JTWCActiveStormFeedParser*>(user)->start(name);
}
void XMLCALL onEnd(void* user, const XML_Char* name) { static_cast<JTWCActiveStormFeedParser*>(user)->end(name); }
void XMLCALL onCharacters(void* user, const XML_Char* text, int length) {
  static_cast<JTWCActiveStormFeedParser*>(user)->characters(std::string_view(text, static_cast<std::size_t>(length)));
}
void XMLCALL onEntityDeclaration(void* user, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                 const XML_Char*, const XML_Char*, const XML_Char*) {
  auto* feed = static_cast<JTWCActiveStormFeedParser*>(user);
  feed->failure = "entity declarations are not accepted";
  XML_StopParser(feed->parser, XML_FALSE);
}

struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

std::optional<JTWCActiveStormFeedSection> sectionOf(const std::optional<std::string>& guid) {
  const std::string value = upperCased(trimmed(guid.value_or("")));
  for (auto section :
       {JTWCActiveStormFeedSection::northwestPacificAndNorthIndianOcean, JTWCActiveStormFeedSection::eastCentralPacific,
        JTWCActiveStormFeedSection::southernHemisphere}) {
    if (value == rawValue(section)) return section;
  }
  return std::nullopt;
}

bool isLetter(char c) { return c >= 'a' && c <= 'z'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

std::vector<std::string> productLinkSlugs(std::string_view description) {
  std::string text(description);
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const std::string_view marker = "/products/";
  std::vector<std::string> slugs;
  std::size_t position = 0;
  for (;;) {
    const std::size_t http = text.find("http://", position);
    const std::size_t https = text.find("https://", position);
    const std::size_t start = std::min(http, https);
    if (start == std::string::npos) break;
    const std::size_t afterScheme = start + (start == https ? 8 : 7);
    std::size_t segmentEnd = text.find_first_of("'\"", afterScheme);
    if (segmentEnd == std::string::npos) segmentEnd = text.size();
    // The expression's greedy run stops at the last link of the quote-free stretch.
    bool found = false;
    std::size_t at = segmentEnd;
    while (!found && at > afterScheme) {
      at = text.rfind(marker, at - 1);
      if (at == std::string::npos || at < afterScheme) break;
      const std::size_t slugAt = at + marker.size();
      if (slugAt + 6 > segmentEnd || !isLetter(text[slugAt]) || !isLetter(text[slugAt + 1]) ||
          !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(slugAt + 2),
                       text.begin() + static_cast<std::ptrdiff_t>(slugAt + 6), isDigit)) {
        continue;
      }
      const std::string_view rest = std::string_view(text).substr(slugAt + 6, segmentEnd - slugAt - 6);
      const std::size_t suffix = rest.starts_with("web.txt") ? 7 : rest.starts_with(".kmz") ? 4 : 0;
      if (suffix == 0) continue;
      slugs.push_back(text.substr(slugAt, 6));
      position = slugAt + 6 + suffix;
      found = true;
    }
    // No link after the first address of a stretch means none after a later one either.
    if (!found) position = segmentEnd;
  }
  return slugs;
}

const char* rawValue(JTWCActiveStormFeedSection section) {
  switch (section) {
    case JTWCActiveStormFeedSection::northwestPacificAndNorthIndianOcean: return "NWPAC-NIO-WARNINGS";
    case JTWCActiveStormFeedSection::eastCentralPacific: return "EPAC-CPAC-WARNINGS";
    case JTWCActiveStormFeedSection::southernHemisphere: return "SH-WARNINGS";
  }
  return "";
}

ActiveStormCoverageSet coverageOf(JTWCActiveStormFeedSection section) {
  switch (section) {
    case JTWCActiveStormFeedSection::northwestPacificAndNorthIndianOcean:
      return {ActiveStormCoverage::jtwcWestPacific, ActiveStormCoverage::jtwcIndianOcean};
    case JTWCActiveStormFeedSection::eastCentralPacific: return {ActiveStormCoverage::jtwcEastCentralPacific};
    case JTWCActiveStormFeedSection::southernHemisphere: return {ActiveStormCoverage::jtwcSouthernHemisphere};
  }
  return {};
}

std::vector<JTWCActiveStormFeedItem> parseJTWCFeed(std::string_view data) {
  std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate(nullptr));
  if (!parser) throw DecodingError("cannot create an XML parser");
  JTWCActiveStormFeedParser feed;
  feed.parser = parser.get();
  XML_SetUserData(parser.get(), &feed);
  XML_SetElementHandler(parser.get(), onStart, onEnd);
  XML_SetCharacterDataHandler(parser.get(), onCharacters);
  XML_SetEntityDeclHandler(parser.get(), onEntityDeclaration);
  if (data.size() > (16u << 20)) throw DecodingError("JTWC feed: too large");
  const auto status = XML_Parse(parser.get(), data.data(), static_cast<int>(data.size()), XML_TRUE);
  if (!feed.failure.empty()) throw DecodingError("JTWC feed refused: " + feed.failure);
  if (status != XML_STATUS_OK) {
    throw DecodingError("JTWC feed: " + std::string(XML_ErrorString(XML_GetErrorCode(parser.get()))) + " at line " +
                        std::to_string(XML_GetCurrentLineNumber(parser.get())));
  }
  if (!feed.foundRSSRoot || !feed.foundChannel)
    throw DecodingError("JTWC feed: cannot parse response (no RSS channel)");
  return std::move(feed.items);
}

JTWCReferencesAndSections referencesAndSections(const std::vector<JTWCActiveStormFeedItem>& items) {
  JTWCReferencesAndSections out;
  std::set<std::string> seen;
  for (const auto& item : items) {
    const auto section = sectionOf(item.guid);
    if (!section) continue;
    JTWCActiveStormFeedSectionEvidence evidence{.section = *section};
    const std::string description = item.description.value_or("");
    for (std::string slug : productLinkSlugs(description)) {
      evidence.hasRecognizedStorm = true;
      if (seen.insert(slug).second) {
        out.references.push_back(JTWCActiveStormFeedReference{std::move(slug), item.publicationDate, *section});
      }
    }
    evidence.explicitlyReportsNoWarnings = containsIgnoringCase(description, "No Current Tropical Cyclone Warnings");
    out.sections.push_back(evidence);
  }
  for (const auto& evidence : out.sections) {
    if (evidence.hasRecognizedStorm || evidence.explicitlyReportsNoWarnings) {
      const auto areas = coverageOf(evidence.section);
      out.provenCoverage.insert(areas.begin(), areas.end());
    }
  }
  return out;
}

std::optional<JTWCStormDescriptor> descriptorFor(const JTWCActiveStormFeedReference& reference,
                                                 const boost::urls::url& base) {
  if (reference.identifier.empty()) return std::nullopt;
  JTWCStormDescriptor descriptor{
      .slug = reference.identifier,
      .kmzURL = underBase(base, "/jtwc/products/" + reference.identifier + ".kmz"),
      .advisoryURL = underBase(base, "/jtwc/products/" + reference.identifier + "web.txt"),
      .pubDate = reference.publicationDate,
      .coverage = {},
  };
  switch (basinOf(reference.identifier)) {
    case StormBasin::eastPacific:
    case StormBasin::centralPacific: descriptor.coverage = {ActiveStormCoverage::jtwcEastCentralPacific}; break;
    case StormBasin::westPacific: descriptor.coverage = {ActiveStormCoverage::jtwcWestPacific}; break;
    case StormBasin::southernHemisphere: descriptor.coverage = {ActiveStormCoverage::jtwcSouthernHemisphere}; break;
    case StormBasin::indianOcean: descriptor.coverage = {ActiveStormCoverage::jtwcIndianOcean}; break;
    case StormBasin::atlantic:
    case StormBasin::otherBasin: descriptor.coverage = coverageOf(reference.section); break;
  }
  return descriptor;
}

Task<JTWCDescriptorsResult> fetchJTWCDescriptors(HttpClient& http, const ServiceEndpoints& endpoints,
                                                 ActiveStormCoverageSet requested) {
  auto url = underBase(endpoints.jointTyphoonWarningCenter, "/jtwc/rss/jtwc.rss");
  std::string accept = "application/rss+xml,application/xml,text/xml";
  const std::string body = co_await getStormFile(http, std::move(url), std::move(accept));
  const auto found = referencesAndSections(parseJTWCFeed(body));
  JTWCDescriptorsResult result;
  for (const auto& reference : found.references) {
    auto descriptor = descriptorFor(reference, endpoints.jointTyphoonWarningCenter);
    if (descriptor && !intersection(descriptor->coverage, requested).empty())
      result.descriptors.push_back(std::move(*descriptor));
  }
  result.completeCoverage = intersection(found.provenCoverage, requested);
  co_return result;
}

}  // namespace ombrine
