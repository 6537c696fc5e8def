#pragma once
// The requests of the five fire services and British Columbia's map service, as URLs: every
// query item in the order the services are asked with. Pure functions; reentrant.

#include <boost/url/url.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/values/date.hpp"
#include "fires/fire_loading_policy.hpp"
#include "fires/fire_records.hpp"

namespace ombrine {

// A paged walk collects at most this many records, this many a page.
inline constexpr int kFireWalkLimit = 20000;
inline constexpr int kFirePageSize = 2000;

// "timestamp 'yyyy-MM-dd HH:mm:ss'" in UTC.
std::string fireDateLiteral(Date date);

// The geometry tolerance of an envelope (the snapshot key), and the generalisation sent to the
// service for it.
double fireGeometryTolerance(const FireMapEnvelope& envelope) noexcept;
double fireMaximumAllowableOffset(double tolerance) noexcept;

// False when the envelope lies wholly outside California's box (no FIRIS query then).
bool fireEnvelopeMeetsCalifornia(const FireMapEnvelope& envelope) noexcept;

enum class NIFCIncidentLayer { current, yearToDate };

// The where-clause of each query, as sent.
std::string nifcIncidentWhere(NIFCIncidentLayer layer, Date now);
std::string nifcPerimeterWhere(Date now);
std::string calFirePerimeterDiscoveryWhere();

boost::urls::url nifcIncidentURL(const boost::urls::url& base, NIFCIncidentLayer layer, Date now, int count, int offset,
                                 const std::optional<FireMapEnvelope>& envelope);
// With `objectIDs`, only those members (the envelope items are then left out).
boost::urls::url nifcPerimeterURL(const boost::urls::url& base, Date now, int count, int offset,
                                  const FireMapEnvelope& envelope, double tolerance,
                                  const std::vector<std::int64_t>& objectIDs = {});

// One page of a FIRIS perimeter query. Only the `objectIDs` scope returns shapes, generalised
// for `tolerance`; the other two return the members' attributes alone.
boost::urls::url calFirePerimeterURL(const boost::urls::url& base, const CalFirePerimeterQueryScope& scope,
                                     double tolerance, int count, int offset);
boost::urls::url calFireIncidentsURL(const boost::urls::url& site);

boost::urls::url cwfisActiveFiresURL(const boost::urls::url& base, Date now, int count, int startIndex,
                                     const std::optional<FireMapEnvelope>& envelope);
boost::urls::url cwfisPerimetersURL(const boost::urls::url& base, int count, int startIndex,
                                    const FireMapEnvelope& envelope);

// British Columbia's fire numbers, looked up in one request.
boost::urls::url bcWildfireEnrichmentURL(const boost::urls::url& base, const std::vector<std::string>& fireNumbers);

}  // namespace ombrine
