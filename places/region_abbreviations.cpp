#include "places/region_abbreviations.hpp"

#include <algorithm>
#include <iterator>

namespace ombrine {

namespace {

struct Abbreviation {
  std::string_view country;
  std::string_view regionKey;      // the region's name as the index folds it
  std::string_view abbreviations;  // folded, separated by '|'
};

// Postal and official state codes as people write them in addresses.
constexpr Abbreviation kAbbreviations[] = {
    {"AU", "australian capital territory", "act"},
    {"AU", "new south wales", "nsw"},
    {"AU", "northern territory", "nt"},
    {"AU", "queensland", "qld"},
    {"AU", "south australia", "sa"},
    {"AU", "tasmania", "tas"},
    {"AU", "victoria", "vic"},
    {"AU", "western australia", "wa"},

    {"BR", "acre", "ac"},
    {"BR", "alagoas", "al"},
    {"BR", "amapa", "ap"},
    {"BR", "amazonas", "am"},
    {"BR", "bahia", "ba"},
    {"BR", "ceara", "ce"},
    {"BR", "federal district", "df"},
    {"BR", "espirito santo", "es"},
    {"BR", "goias", "go"},
    {"BR", "maranhao", "ma"},
    {"BR", "mato grosso", "mt"},
    {"BR", "mato grosso do sul", "ms"},
    {"BR", "minas gerais", "mg"},
    {"BR", "para", "pa"},
    {"BR", "paraiba", "pb"},
    {"BR", "parana", "pr"},
    {"BR", "pernambuco", "pe"},
    {"BR", "piaui", "pi"},
    {"BR", "rio de janeiro", "rj"},
    {"BR", "rio grande do norte", "rn"},
    {"BR", "rio grande do sul", "rs"},
    {"BR", "rondonia", "ro"},
    {"BR", "roraima", "rr"},
    {"BR", "santa catarina", "sc"},
    {"BR", "sao paulo", "sp"},
    {"BR", "sergipe", "se"},
    {"BR", "tocantins", "to"},

    {"CA", "alberta", "ab|alta"},
    {"CA", "british columbia", "bc"},
    {"CA", "manitoba", "mb|man"},
    {"CA", "new brunswick", "nb"},
    {"CA", "newfoundland and labrador", "nl|nfld"},
    {"CA", "northwest territories", "nt|nwt"},
    {"CA", "nova scotia", "ns"},
    {"CA", "nunavut", "nu"},
    {"CA", "ontario", "on|ont"},
    {"CA", "prince edward island", "pe|pei"},
    {"CA", "quebec", "qc|que"},
    {"CA", "saskatchewan", "sk|sask"},
    {"CA", "yukon", "yt"},

    {"DE", "baden wurttemberg", "bw"},
    {"DE", "bavaria", "by"},
    {"DE", "berlin", "be"},
    {"DE", "brandenburg", "bb"},
    {"DE", "bremen", "hb"},
    {"DE", "hamburg", "hh"},
    {"DE", "hesse", "he"},
    {"DE", "lower saxony", "ni"},
    {"DE", "mecklenburg vorpommern", "mv"},
    {"DE", "north rhine westphalia", "nw|nrw"},
    {"DE", "rheinland pfalz", "rp"},
    {"DE", "saarland", "sl"},
    {"DE", "saxony", "sn"},
    {"DE", "saxony anhalt", "st"},
    {"DE", "schleswig holstein", "sh"},
    {"DE", "thuringia", "th"},

    {"GB", "england", "eng"},
    {"GB", "northern ireland", "ni|nir"},
    {"GB", "scotland", "sct|scot"},
    {"GB", "wales", "wls|cym"},

    {"IN", "andhra pradesh", "ap"},
    {"IN", "assam", "as"},
    {"IN", "bihar", "br"},
    {"IN", "chandigarh", "ch"},
    {"IN", "chhattisgarh", "cg|ct"},
    {"IN", "delhi", "dl"},
    {"IN", "goa", "ga"},
    {"IN", "gujarat", "gj"},
    {"IN", "haryana", "hr"},
    {"IN", "himachal pradesh", "hp"},
    {"IN", "jammu and kashmir", "jk"},
    {"IN", "jharkhand", "jh"},
    {"IN", "karnataka", "ka"},
    {"IN", "kerala", "kl"},
    {"IN", "madhya pradesh", "mp"},
    {"IN", "maharashtra", "mh"},
    {"IN", "odisha", "od|or"},
    {"IN", "punjab", "pb"},
    {"IN", "rajasthan", "rj"},
    {"IN", "tamil nadu", "tn"},
    {"IN", "telangana", "tg|ts"},
    {"IN", "uttar pradesh", "up"},
    {"IN", "uttarakhand", "uk"},
    {"IN", "west bengal", "wb"},

    {"MX", "aguascalientes", "ags"},
    {"MX", "baja california", "bc"},
    {"MX", "baja california sur", "bcs"},
    {"MX", "campeche", "camp"},
    {"MX", "chiapas", "chis"},
    {"MX", "chihuahua", "chih"},
    {"MX", "coahuila", "coah"},
    {"MX", "colima", "col"},
    {"MX", "durango", "dgo"},
    {"MX", "guanajuato", "gto"},
    {"MX", "guerrero", "gro"},
    {"MX", "hidalgo", "hgo"},
    {"MX", "jalisco", "jal"},
    {"MX", "mexico", "mex|edomex"},
    {"MX", "mexico city", "cdmx|df"},
    {"MX", "michoacan", "mich"},
    {"MX", "morelos", "mor"},
    {"MX", "nayarit", "nay"},
    {"MX", "nuevo leon", "nl"},
    {"MX", "oaxaca", "oax"},
    {"MX", "puebla", "pue"},
    {"MX", "queretaro", "qro"},
    {"MX", "quintana roo", "qroo|qr"},
    {"MX", "san luis potosi", "slp"},
    {"MX", "sinaloa", "sin"},
    {"MX", "sonora", "son"},
    {"MX", "tabasco", "tab"},
    {"MX", "tamaulipas", "tamps"},
    {"MX", "tlaxcala", "tlax"},
    {"MX", "veracruz", "ver"},
    {"MX", "yucatan", "yuc"},
    {"MX", "zacatecas", "zac"},
};

bool listed(std::string_view abbreviations, std::string_view qualifier) noexcept {
  while (!abbreviations.empty()) {
    const std::size_t bar = abbreviations.find('|');
    if (abbreviations.substr(0, bar) == qualifier) return true;
    if (bar == std::string_view::npos) break;
    abbreviations.remove_prefix(bar + 1);
  }
  return false;
}

}  // namespace

bool isRegionAbbreviation(std::string_view countryCode, std::string_view regionKey,
                          std::string_view qualifier) noexcept {
  if (qualifier.empty()) return false;
  return std::any_of(std::begin(kAbbreviations), std::end(kAbbreviations), [&](const Abbreviation& entry) {
    return entry.country == countryCode && entry.regionKey == regionKey && listed(entry.abbreviations, qualifier);
  });
}

}  // namespace ombrine
