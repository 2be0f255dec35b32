// The person's page in a real browser, on the programs and the printer of page_stage. Run by scripts/test-page, which
// says where everything is:
//
//   STAGE     the program page_stage        MODULES   the folder with puppeteer-core
//   CHROMIUM  the browser                   DOCUMENT  a PDF to print
//   WORK      a folder for what is left: pictures, the browser's own files
import assert from "node:assert/strict";
import {spawn, spawnSync} from "node:child_process";
import {createRequire} from "node:module";
import {after, before, test} from "node:test";
import fs from "node:fs";
import path from "node:path";
import readline from "node:readline";

const {STAGE, MODULES, CHROMIUM, DOCUMENT, WORK} = process.env;
const puppeteer = createRequire(path.join(MODULES, "/"))("puppeteer-core");
const kSize = fs.statSync(DOCUMENT).size;
let stage, browser, page, place, address;
const complaints = [];

class Stage {
  constructor() {
    this.process = spawn(STAGE, {stdio: ["pipe", "pipe", "inherit"]});
    this.lines = readline.createInterface({input: this.process.stdout})[Symbol.asyncIterator]();
  }
  async read() {
    const {value, done} = await this.lines.next();
    assert(!done, "the stage has ended");
    const answer = JSON.parse(value);
    assert.equal(answer.failure, undefined);
    return answer;
  }
  do(what, more = {}) {
    this.process.stdin.write(JSON.stringify({do: what, ...more}) + "\n");
    return this.read();
  }
  // A job that comes whole.
  async print(job, printer, title, more = {}) {
    await this.do("start", {job, printer, title, ...more});
    await this.do("write", {job, file: DOCUMENT, bytes: kSize});
    await this.do("end", {job});
  }
  async result(job) {
    return (await this.do("result", {job})).result;
  }
  end() {
    return new Promise((resolve) => {
      this.process.on("exit", resolve);
      this.process.stdin.end();
    });
  }
}

// The latest job of that title, once it is in that stage.
async function job(title, stageWord) {
  const handle = await page.waitForFunction((wanted, word) => [...document.querySelectorAll(".job")].find((item) =>
    item.querySelector(".title").textContent === wanted && (!word || item.querySelector(".stage").textContent === word)),
  {polling: "mutation"}, title, stageWord);
  return handle.asElement();
}
const text = (item, part) => item.$eval(`.${part}`, (element) => element.hidden ? "" : element.textContent);
const isThere = (item, part) => item.$eval(`.${part}`, (element) => !element.hidden);

// What "printclient --show" gives the browser to open: a program of that name is in front of the path.
function shown() {
  const folder = path.join(WORK, "opener");
  const opened = path.join(WORK, "opened");
  fs.mkdirSync(folder, {recursive: true});
  fs.rmSync(opened, {force: true});
  fs.writeFileSync(path.join(folder, "xdg-open"), `#!/bin/sh\nprintf '%s' "$1" >'${opened}'\n`, {mode: 0o755});
  const program = spawnSync(place.program, ["--show"], {
    encoding: "utf8",
    env: {...process.env, PATH: `${folder}:${process.env.PATH}`, DISPLAY: ":9", XDG_RUNTIME_DIR: place.runtime},
  });
  return {code: program.status, out: program.stdout, error: program.stderr,
    document: fs.existsSync(opened) ? fs.readFileSync(opened, "utf8") : ""};
}

before(async () => {
  stage = new Stage();
  place = await stage.read();
  fs.rmSync(path.join(WORK, "browser"), {recursive: true, force: true});
  browser = await puppeteer.launch({
    executablePath: CHROMIUM,
    headless: true,
    userDataDir: path.join(WORK, "browser"),
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync", "--force-color-profile=srgb"],
  });
});

after(async () => {
  await browser?.close();
  await stage?.end();
});

test("the page opens with printclient --show, which gives the browser a private document and no address", async () => {
  const first = shown();
  assert.equal(first.code, 0, first.error);
  assert.equal(first.out, "your print jobs are opened in the browser\n");
  assert.equal(fs.statSync(first.document).mode & 0o777, 0o600);
  assert(first.document.startsWith(place.runtime));
  page = await browser.newPage();
  page.on("console", (message) => complaints.push(message.text()));
  page.on("pageerror", (error) => complaints.push(String(error)));
  await page.setViewport({width: 760, height: 900, deviceScaleFactor: 1});
  await page.goto(`file://${first.document}`);
  await page.waitForFunction(() => location.protocol === "http:" && document.querySelector("#servers .connected"));
  address = page.url();
  assert.match(address, /^http:\/\/127\.0\.0\.1:\d+\/[0-9a-f]{64}\/$/);
  assert.deepEqual(await page.$$eval("#printers li", (all) => all.map((item) => item.firstChild.textContent)),
    ["Letters (default)", "Desk", "Attic"]);
});

test("progress is seen moving while the data come", async () => {
  await stage.do("start", {job: "slow", printer: "Letters", title: "Annual report"});
  const item = await job("Annual report", "Receiving");
  assert(await isThere(item, "progress"));
  for (const [from, to, shown] of [[0, 2000, "2.0 kB"], [2000, 5000, "5.0 kB"], [5000, 7000, "7.0 kB"]]) {
    await stage.do("write", {job: "slow", file: DOCUMENT, from, bytes: to - from});
    await page.waitForFunction((element, size) => element.querySelector(".facts").textContent.endsWith(` · ${size}`),
      {polling: "mutation"}, item, shown);
  }
  await stage.do("write", {job: "slow", file: DOCUMENT, from: 7000, bytes: kSize});
  await stage.do("end", {job: "slow"});
  assert.equal(await stage.result("slow"), 1);
  await job("Annual report", "Delivered");
  assert.match(await text(item, "facts"), /^Letters · .* · .* · to Annual report\.pdf$/);
  assert(!await isThere(item, "progress"));
});

test("the document is looked at, and kept as a file", async () => {
  const item = await job("Annual report", "Delivered");
  const href = await item.$eval(".view", (link) => link.href);
  const viewed = await page.evaluate(async (link) => {
    const answer = await fetch(link);
    return {type: answer.headers.get("Content-Type"), disposition: answer.headers.get("Content-Disposition"),
      policy: answer.headers.get("Content-Security-Policy"), size: (await answer.arrayBuffer()).byteLength};
  }, href);
  assert.equal(viewed.type, "application/pdf");
  assert.equal(viewed.disposition, "inline; filename*=UTF-8''Annual%20report.pdf");
  assert.match(viewed.policy, /^default-src 'none'/);
  assert.equal(viewed.size, kSize);
  const opened = new Promise((resolve) => browser.once("targetcreated", resolve));
  await item.$eval(".view", (link) => link.click());
  const viewer = await (await opened).page();
  await viewer.waitForFunction(() => document.contentType === "application/pdf");
  await viewer.close();
  const downloads = path.join(WORK, "downloads");
  fs.rmSync(downloads, {recursive: true, force: true});
  const session = await browser.target().createCDPSession();
  const done = new Promise((resolve) => session.on("Browser.downloadProgress",
    (event) => event.state === "completed" && resolve()));
  await session.send("Browser.setDownloadBehavior", {behavior: "allow", downloadPath: downloads, eventsEnabled: true});
  await item.$eval(".file", (link) => link.click());
  await done;
  assert.deepEqual(fs.readFileSync(path.join(downloads, "Annual report.pdf")), fs.readFileSync(DOCUMENT));
});

test("cancel stops a job that is still coming, and its application is told", async () => {
  await stage.do("start", {job: "cut", printer: "Letters", title: "Never mind"});
  await stage.do("write", {job: "cut", file: DOCUMENT, bytes: 2000});
  const item = await job("Never mind", "Receiving");
  await item.$eval(".cancel", (button) => button.click());
  await job("Never mind", "Canceled");
  await stage.do("end", {job: "cut"});
  const ended = await stage.do("result", {job: "cut"});
  assert.equal(ended.result, 0);
  assert.match(ended.why, /the person canceled the job at the print client/);
  assert(!await isThere(item, "cancel") && !await isThere(item, "view") && !await isThere(item, "again"));
  assert.deepEqual(fs.readdirSync(place.output), ["Annual report.pdf"]);
});

test("paper that has run out is seen, and cancel takes the job from the printer", async () => {
  await stage.print("paper", "Desk", "Poster", {copies: 2});
  assert.equal(await stage.result("paper"), 1);
  await job("Poster", "Printing");
  await stage.do("allow", {what: "runs-out"});
  const item = await job("Poster", "Printer needs you");
  assert.equal(await text(item, "cause"), "The printer wants paper that is not in it (\"Job printing\").");
  await item.$eval(".cancel", (button) => button.click());
  await job("Poster", "Canceling");
  await stage.do("allow", {what: "go"});  // this printer ends a job at the end of its page
  await job("Poster", "Canceled");
});

test("print again prints what is kept", async () => {
  const before = (await stage.do("printed")).count;
  const item = await job("Poster", "Canceled");
  await item.$eval(".again", (button) => button.click());
  const second = await job("Poster", "Printed");
  assert.match(await text(second, "facts"), / · printed again · to the printer at ipp:.* as job 2, 2 copies$/);
  assert.equal((await stage.do("printed")).count, before + 1);
});

test("a failure shows its reason and what to do", async () => {
  await stage.print("lost", "Attic", "Invoice 2026-117");
  assert(await stage.result("lost") < 0);
  const item = await job("Invoice 2026-117", "Not printed");
  assert.match(await text(item, "cause"), /^The printer at ipp:\/\/localhost:\d+\/ipp\/print cannot be used: .*\.$/);
  assert.equal(await text(item, "remedy"),
    "See that it is switched on and connected and that the address is right, and print again.");
  assert(await isThere(item, "again"));
});

test("it is good to look at, light and dark, wide and narrow", async () => {
  await stage.do("start", {job: "show", printer: "Letters", title: "Minutes of the meeting"});
  await stage.do("write", {job: "show", file: DOCUMENT, bytes: 4200});
  const coming = await job("Minutes of the meeting", "Receiving");
  await page.waitForFunction((element) => element.querySelector(".facts").textContent.includes("4.2 kB"),
    {polling: "mutation"}, coming);
  for (const [scheme, width] of [["light", 760], ["dark", 760], ["light", 360]]) {
    await page.setViewport({width, height: 940, deviceScaleFactor: 1});
    await page.emulateMediaFeatures([{name: "prefers-color-scheme", value: scheme}]);
    await page.screenshot({path: path.join(WORK, `page-${scheme}-${width}.png`)});
    assert(await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth), "it is too wide");
  }
  await page.setViewport({width: 760, height: 900, deviceScaleFactor: 1.5});
  await page.screenshot({path: path.join(WORK, "page-picture.png"), clip: {x: 0, y: 0, width: 760, height: 864}});
  await stage.do("write", {job: "show", file: DOCUMENT, from: 4200, bytes: kSize});
  await stage.do("end", {job: "show"});
  assert.equal(await stage.result("show"), 1);
});

test("a script in a title is text", async () => {
  const title = "<img src=x onerror=\"document.title='broken'\"><script>document.title='broken'</script>";
  await stage.print("script", "Letters", title);
  assert.equal(await stage.result("script"), 1);
  const item = await job(title, "Delivered");
  assert.equal(await page.title(), "Print jobs");
  assert.equal(await item.$$eval("img, script", (all) => all.length), 0);
});

test("everything can be done by the keyboard, and the focus stays when the list changes", async () => {
  await page.bringToFront();
  const item = await job("Annual report", "Delivered");
  const number = await item.evaluate((element) => element.id);
  await page.focus("#heading");
  const seen = [];
  for (let i = 0; i < 60; ++i) {
    await page.keyboard.press("Tab");
    const focused = await page.evaluate(() => [document.activeElement.closest(".job")?.id,
      document.activeElement.textContent]);
    seen.push(focused.join(" "));
    if (focused[0] === number && focused[1] === "Print again") break;
  }
  assert.equal(seen.at(-1), `${number} Print again`);
  await stage.print("other", "Letters", "Another one");
  await job("Another one", "Delivered");
  assert.equal(await page.evaluate(() => document.activeElement.closest(".job")?.id), number);
  await page.keyboard.press("Enter");
  await page.waitForFunction(() => [...document.querySelectorAll(".job")].filter((element) =>
    element.querySelector(".title").textContent === "Annual report").length === 2, {polling: "mutation"});
  await stage.do("start", {job: "key", printer: "Letters", title: "By key"});
  const coming = await job("By key", "Receiving");
  await coming.$eval(".cancel", (button) => button.focus());
  await page.keyboard.press("Space");
  await job("By key", "Canceled");
  assert.equal(await page.evaluate(() => document.activeElement.textContent), "By key");
  const spoken = await page.$$eval("#announcements p", (all) => all.map((line) => line.textContent));
  assert(spoken.includes("By key: Canceled."), spoken.join("\n"));
});

test("another site gets nothing, whatever it tries", async () => {
  const other = await browser.newPage();
  await other.goto("data:text/html,<title>other</title>");
  const tried = await other.evaluate(async (base) => {
    const results = [];
    for (const method of ["GET", "POST"])
      results.push(await fetch(base + (method === "GET" ? "events" : "jobs/1/again"), {method, mode: "no-cors"})
        .then(() => "answered", () => "refused"));
    const frame = document.createElement("iframe");
    frame.src = base;
    document.body.append(frame);
    await new Promise((resolve) => { frame.onload = resolve; });
    results.push(frame.contentDocument === null ? "closed" : "open");
    return results;
  }, address);
  assert.equal(tried[2], "closed");
  await other.close();
  assert.equal(await page.$$eval(".job", (all) => all.filter((item) =>
    item.querySelector(".title").textContent === "Annual report").length), 2);
});

test("without a print client the page says so, and printclient --show says what to do", async () => {
  assert.deepEqual(complaints.filter((line) => !/net::ERR|Failed to load/.test(line)), []);
  await stage.do("stop");
  await page.waitForSelector("#lost:not([hidden])");
  const later = shown();
  assert.equal(later.code, 1);
  assert.equal(later.error, "printclient: no print client of yours is running with a page; start one (without " +
    "--no-page), and then call printclient --show again\n");
  assert.deepEqual(fs.readdirSync(path.join(place.runtime, "printclient")), []);
});
