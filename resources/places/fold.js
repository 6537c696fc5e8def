'use strict';
// The search-key folding shared by the generator and the program (places/search_key.cpp).
// Both sides must produce byte-identical keys, so every step is spelled out here:
//
//   1. full default case folding, code point by code point;
//   2. NFD, remove every Nonspacing Mark (general category Mn), NFC: the ICU transliterator
//      "NFD; [:Nonspacing Mark:] Remove; NFC";
//   3. white space, hyphens, dashes and "_" become a space; apostrophe look-alikes become "'";
//      "." is dropped ("St. Louis" and "St Louis" meet);
//   4. runs of spaces collapse to one; leading and trailing spaces go.
//
// Folding comes first so that the dot that default folding gives "İ" (i + U+0307) is a
// nonspacing mark by the time marks are removed ("İstanbul" meets "istanbul").

// JavaScript has no case-folding call. lower(upper(lower(c))) equals Unicode's full default
// folding for every character except the two families below (ẞ and ß both reach "ss",
// final sigma reaches σ, ligatures expand, Kelvin sign reaches k).
function foldCodePoint(c) {
  const cp = c.codePointAt(0);
  if (cp === 0x0131) return c; // dotless ı folds to itself by default
  if (cp >= 0x13a0 && cp <= 0x13f5) return c; // Cherokee capitals are the folded form
  if ((cp >= 0x13f8 && cp <= 0x13fd) || (cp >= 0xab70 && cp <= 0xabbf)) return c.toUpperCase();
  return c.toLowerCase().toUpperCase().toLowerCase();
}

const SPACES = new Set([
  0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x20, 0x85, 0xa0, 0x1680, 0x2000, 0x2001, 0x2002, 0x2003,
  0x2004, 0x2005, 0x2006, 0x2007, 0x2008, 0x2009, 0x200a, 0x2028, 0x2029, 0x202f, 0x205f,
  0x3000, 0xfeff,
  // hyphens and dashes, and the underscore
  0x2d, 0x5f, 0x2010, 0x2011, 0x2012, 0x2013, 0x2014, 0x2015, 0x2212,
]);
const APOSTROPHES = new Set([0x60, 0xb4, 0x2bc, 0x2018, 0x2019]);

function searchKey(text) {
  let folded = '';
  for (const c of text) folded += foldCodePoint(c);
  const stripped = folded.normalize('NFD').replace(/\p{Mn}/gu, '').normalize('NFC');
  let out = '';
  let pendingSpace = false;
  for (const c of stripped) {
    const cp = c.codePointAt(0);
    if (SPACES.has(cp)) {
      pendingSpace = out.length > 0;
      continue;
    }
    if (cp === 0x2e) continue;
    if (pendingSpace) out += ' ';
    pendingSpace = false;
    out += APOSTROPHES.has(cp) ? "'" : c;
  }
  return out;
}

module.exports = { searchKey };
