'use strict';
// The page of `ombrine serve` in a real browser: the system's headless Chromium, driven by
// playwright-core, against the server in front of the embedded simulator. Checks that the
// forecast appears, the map draws radar tiles from this server (and nothing is asked of any
// other address), the radar timeline advances, storms and fires are drawn, the threats panel
// fills, and saves light and dark screenshots. Prints the first forecast paint and the API
// timings the browser measured.
//
// Usage: node page_test.js OMBRINE_PROGRAM [ARTIFACT_FOLDER]

const { spawn } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { chromium } = require('playwright-core');

const program = process.argv[2];
const artifacts = process.argv[3] || path.join(process.cwd(), 'page-test-artifacts');
fs.mkdirSync(artifacts, { recursive: true });
const sandbox = fs.mkdtempSync(path.join(os.tmpdir(), 'ombrine-page-'));
const failures = [];
const check = (ok, what) => { console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}`); if (!ok) failures.push(what); };

function startServer() {
  const env = { ...process.env, LANG: 'en_GB.UTF-8', NO_COLOR: '1' };
  for (const [name, folder] of [['OMBRINE_CONTAINER', 'group'], ['XDG_CACHE_HOME', 'cache'], ['XDG_CONFIG_HOME', 'config'],
    ['XDG_DATA_HOME', 'data'], ['OMBRINE_SYNC_DIR', 'sync'], ['XDG_RUNTIME_DIR', 'runtime']]) {
    env[name] = path.join(sandbox, folder);
  }
  const server = spawn(program, ['--services', 'sim', 'serve', '--port', '0'], { env, stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    let text = '';
    server.stdout.on('data', (chunk) => {
      text += chunk;
      const found = /Serving (http:\/\/\S+)/.exec(text);
      if (found) resolve({ server, address: found[1] });
    });
    server.on('exit', (code) => reject(new Error(`ombrine serve ended with ${code}`)));
    setTimeout(() => reject(new Error('ombrine serve did not start')), 30000);
  });
}

async function main() {
  const { server, address } = await startServer();
  const origin = new URL(address).origin;
  // An empty profile folder of its own: Playwright passes it as --user-data-dir.
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'ombrine-chromium-'));
  const browser = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    viewport: { width: 1280, height: 1400 },
    locale: 'en-GB',
    // The page's policy forbids eval; the test's own probes need it.
    bypassCSP: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  try {
    const page = browser.pages()[0] || await browser.newPage();
    const foreign = [];
    const tiles = [];
    page.on('request', (request) => { if (!request.url().startsWith(origin) && !request.url().startsWith('data:')) foreign.push(request.url()); });
    page.on('response', (response) => { if (response.url().includes('/tiles/radar/')) tiles.push(response.status()); });
    page.on('pageerror', (error) => check(false, `no script error (${error.message})`));

    await page.goto(`${origin}/?q=Chico`, { waitUntil: 'load' });
    await page.waitForSelector('[data-testid=current-temp]', { timeout: 30000 });
    check(/°/.test(await page.textContent('[data-testid=current-temp]')), 'the current temperature appears');
    check(await page.locator('#hourly svg path.chart-temp').count() === 1, 'the hourly chart is drawn');
    check(await page.locator('#days li').count() >= 5, 'the days are listed');

    await page.waitForFunction(() => [...document.querySelectorAll('.radar-tiles img')].some((img) => img.complete && img.naturalWidth > 0), null, { timeout: 30000 });
    check(tiles.length > 0 && tiles.every((status) => status === 200), `radar tiles come from this server (${tiles.length} tiles, all 200)`);

    const before = await page.getAttribute('#frame-time', 'data-index');
    await page.click('#play');
    await page.waitForFunction((start) => document.querySelector('#frame-time').dataset.index !== start, before, { timeout: 5000 });
    await page.click('#play');
    check(true, 'the radar timeline advances when played');
    await page.fill('#frame', '0');
    check(await page.getAttribute('#frame-time', 'data-index') === '0', 'the slider selects a frame');

    await page.waitForFunction(() => document.querySelectorAll('path.fire-perimeter, path.fire-incident').length > 0, null, { timeout: 30000 });
    check(true, 'fire perimeters and incidents are drawn');
    await page.waitForFunction(() => document.querySelector('[data-source=storms]') && !document.querySelector('[data-source=storms]').classList.contains('loading'), null, { timeout: 30000 });
    const stormState = await page.textContent('[data-source=storms]');
    const storms = await page.locator('path.storm-cone, path.storm-track').count();
    check(storms > 0 || /0 active/.test(stormState), `storms are drawn (${storms} shapes; ${stormState})`);
    await page.waitForSelector('#threats .threat, #threats p', { timeout: 30000 });
    check(/Threats within/.test(await page.textContent('#threats h2')), 'the threats panel fills');
    check(await page.locator('#sources li.failed').count() === 0, `no source failed (${await page.textContent('#sources')})`);

    await page.waitForFunction(() => shore.getLayers().length > 0, null, { timeout: 30000 });
    check(true, 'the base map draws our own shore lines');
    const paint = await page.evaluate(() => performance.getEntriesByName('forecast-painted')[0]?.startTime);
    check(paint > 0, `first forecast paint at ${Math.round(paint)} ms after navigation`);
    const apis = await page.evaluate(() => performance.getEntriesByType('resource')
      .filter((entry) => entry.name.includes('/api/'))
      .map((entry) => `${new URL(entry.name).pathname} ${Math.round(entry.duration)} ms`));
    console.log('api timings in the browser: ' + apis.join(', '));
    await page.screenshot({ path: path.join(artifacts, 'page-light.png'), fullPage: true });

    // Centre the map on the storms to show cones and tracks, in dark mode.
    await page.emulateMedia({ colorScheme: 'dark' });
    await page.evaluate(() => { if (stormLayer.getLayers().length) map.fitBounds(L.featureGroup(stormLayer.getLayers()).getBounds().pad(0.2)); });
    await page.waitForTimeout(1500);
    await page.screenshot({ path: path.join(artifacts, 'page-dark-storms.png'), fullPage: true });
    check(foreign.length === 0, `the page asks nothing of other addresses${foreign.length ? ': ' + foreign.slice(0, 3).join(' ') : ''}`);
  } finally {
    await browser.close();
    server.kill('SIGTERM');
    fs.rmSync(sandbox, { recursive: true, force: true });
    fs.rmSync(profile, { recursive: true, force: true });
  }
  console.log(`screenshots in ${artifacts}`);
  if (failures.length) { console.error(`${failures.length} check(s) failed`); process.exit(1); }
}

main().catch((error) => { console.error(error); process.exit(1); });
