// Drives the phone page in headless Chromium as a person would: pair with a code, send one text, follow it
// until it is typed, and (with --expect-removal) see the pairing removed. Prints one line per milestone on
// stdout ("paired", "queued" or "sent", "typed", "removed") for the test program that plays or watches the
// computer side; exits non-zero on any failure. Screenshots go to --out, named after --name.
//
//   node phone-page.mjs --modules DIR --url https://127.0.0.1:PORT --cert server.pem --code 123456
//                       --text-file text.txt --profile DIR --out DIR [--name phone-page]
//                       [--go-file FILE] [--expect-offline] [--expect-removal]
//   --go-file         after pairing, wait for FILE to exist before sending (the computer gets ready)
//   --expect-offline  the computer is offline when the text is sent: check the page says so
import { createHash, createPublicKey } from "node:crypto";
import { existsSync, readFileSync } from "node:fs";
import { setTimeout as sleep } from "node:timers/promises";
import { createRequire } from "node:module";
import path from "node:path";
import { parseArgs } from "node:util";

const { values: options } = parseArgs({
  options: {
    modules: { type: "string" }, url: { type: "string" }, cert: { type: "string" }, code: { type: "string" },
    "text-file": { type: "string" }, profile: { type: "string" }, out: { type: "string" },
    chromium: { type: "string", default: "/usr/bin/chromium" },
    name: { type: "string", default: "phone-page" }, "go-file": { type: "string" },
    "expect-offline": { type: "boolean", default: false }, "expect-removal": { type: "boolean", default: false },
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
  const shot = (name) => page.screenshot({ path: path.join(options.out, `${options.name}-${name}.png`), fullPage: true });
  const timeout = 20000;

  await page.goto(options.url + "/", { waitUntil: "load" });
  await page.locator("#pair-view").waitFor({ state: "visible", timeout });
  await page.fill("#code", options.code);
  await page.fill("#phone-name", "Test Pixel");
  await shot("1-pair");
  await page.click("#pair-button");
  await page.locator("#send-view").waitFor({ state: "visible", timeout });
  step("paired");
  if (options["go-file"]) {
    for (let waited = 0; !existsSync(options["go-file"]); waited += 100) {
      if (waited > 60000) throw new Error("the computer side never got ready");
      await sleep(100);
    }
  }

  await page.fill("#text", text);
  await page.click("#send-button");
  const item = page.locator("#sent li").first();
  if (JSON.parse(await page.evaluate(() => localStorage.getItem("keyferry.phone"))).token.length < 40) {
    throw new Error("the phone credential is not kept in localStorage");
  }
  if (options["expect-offline"]) {
    await page.locator('#sent li[data-state="queued"]').first().waitFor({ timeout });
    await page.locator("#notice", { hasText: "Your computer is offline" }).waitFor({ timeout });
    await shot("2-offline");
    step("queued");
  } else {
    await shot("2-sent");
    step("sent");
  }
  if ((await item.locator(".body").textContent()) !== text) throw new Error("the page shows another text than was sent");

  await page.locator('#sent li[data-state="typed"]').first().waitFor({ timeout: 60000 });
  await shot("3-typed");
  step("typed");
  if (options["expect-removal"]) {
    await page.locator("#pair-view").waitFor({ state: "visible", timeout });
    await page.locator("#notice", { hasText: "no longer paired" }).waitFor({ timeout });
    if (await page.evaluate(() => localStorage.getItem("keyferry.phone")) !== null) {
      throw new Error("the removed pairing is still in localStorage");
    }
    await shot("4-removed");
    step("removed");
  }
} catch (error) {
  failures.push(String(error && error.stack || error));
} finally {
  await context.close();
}
if (failures.length) {
  console.error(failures.join("\n"));
  process.exit(1);
}
