// Drives the phone page in headless Chromium as a person would: pair with a code, send one text, follow it
// until it is typed, then see the pairing removed. Prints one line per milestone on stdout, for the test
// program that plays (or watches) the computer side; exits non-zero on any failure. Screenshots go to --out.
//
//   node phone-page.mjs --modules DIR --url https://127.0.0.1:PORT --cert server.pem --code 123456
//                       --text-file text.txt --profile DIR --out DIR
import { createHash, createPublicKey } from "node:crypto";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import path from "node:path";
import { parseArgs } from "node:util";

const { values: options } = parseArgs({
  options: {
    modules: { type: "string" }, url: { type: "string" }, cert: { type: "string" }, code: { type: "string" },
    "text-file": { type: "string" }, profile: { type: "string" }, out: { type: "string" },
    chromium: { type: "string", default: "/usr/bin/chromium" },
  },
});
const { chromium } = createRequire(path.join(options.modules, "node_modules", "noop.js"))("playwright-core");
const text = readFileSync(options["text-file"], "utf8");
const step = (name) => console.log(name);

// Chromium trusts exactly the service's key (no blanket certificate bypass).
function spkiHash(pemFile) {
  const firstCertificate = readFileSync(pemFile, "utf8").split("-----END CERTIFICATE-----")[0] + "-----END CERTIFICATE-----\n";
  const der = createPublicKey(firstCertificate).export({ type: "spki", format: "der" });
  return createHash("sha256").update(der).digest("base64");
}

const context = await chromium.launchPersistentContext(options.profile, {
  executablePath: options.chromium,
  headless: true,
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", `--ignore-certificate-errors-spki-list=${spkiHash(options.cert)}`],
  viewport: { width: 390, height: 780 },
  deviceScaleFactor: 2,
  isMobile: true,
  hasTouch: true,
  userAgent: "Mozilla/5.0 (Linux; Android 14; Pixel 8) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/156.0 Mobile Safari/537.36",
});
const failures = [];
try {
  const page = context.pages()[0] ?? (await context.newPage());
  page.on("pageerror", (error) => failures.push(`page error: ${error.message}`));
  // Refused requests (the 401 after removal) are logged by Chromium itself; anything else is a page bug.
  page.on("console", (message) => {
    if (message.type() === "error" && !message.text().startsWith("Failed to load resource")) {
      failures.push(`console: ${message.text()}`);
    }
  });
  const shot = (name) => page.screenshot({ path: path.join(options.out, `phone-page-${name}.png`), fullPage: true });
  const timeout = 20000;

  await page.goto(options.url + "/", { waitUntil: "load" });
  await page.locator("#pair-view").waitFor({ state: "visible", timeout });
  await page.fill("#code", options.code);
  await page.fill("#phone-name", "Test Pixel");
  await shot("1-pair");
  await page.click("#pair-button");
  await page.locator("#send-view").waitFor({ state: "visible", timeout });
  step("paired");

  await page.fill("#text", text);
  await page.click("#send-button");
  const item = page.locator("#sent li").first();
  await page.locator('#sent li[data-state="queued"]').first().waitFor({ timeout });
  await page.locator("#notice", { hasText: "Your computer is offline" }).waitFor({ timeout });
  if ((await item.locator(".body").textContent()) !== text) throw new Error("the page shows another text than was sent");
  if (JSON.parse(await page.evaluate(() => localStorage.getItem("keyferry.phone"))).token.length < 40) {
    throw new Error("the phone credential is not kept in localStorage");
  }
  await shot("2-offline");
  step("queued");

  await page.locator('#sent li[data-state="typed"]').first().waitFor({ timeout });
  await shot("3-typed");
  step("typed");

  await page.locator("#pair-view").waitFor({ state: "visible", timeout });
  await page.locator("#notice", { hasText: "no longer paired" }).waitFor({ timeout });
  if (await page.evaluate(() => localStorage.getItem("keyferry.phone")) !== null) {
    throw new Error("the removed pairing is still in localStorage");
  }
  await shot("4-removed");
  step("removed");
} catch (error) {
  failures.push(String(error && error.stack || error));
} finally {
  await context.close();
}
if (failures.length) {
  console.error(failures.join("\n"));
  process.exit(1);
}
