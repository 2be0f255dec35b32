// The page of a person's print jobs. Reads the stream of events and keeps the lists as they say; what comes from
// elsewhere becomes text and never markup. Elements stay while their job does, and so does the focus.
"use strict";

// What each stage of a job is called, and how it looks.
const kStages = {
  "arriving": ["Receiving", "live"],
  "handing-over": ["Handing over", "live"],
  "waiting": ["Waiting at the printer", "live"],
  "printing": ["Printing", "live"],
  "stopped": ["Printer needs you", "wait"],
  "printed": ["Printed", "good"],
  "handed-on": ["Delivered", "good"],
  "failed": ["Not printed", "bad"],
  "canceled": ["Canceled", "plain"],
  "unknown": ["At the printer", "plain"],
};
const kSpokenMost = 20;

const byId = (id) => document.getElementById(id);
const jobs = new Map();  // number -> {job, element, part(class)}
let order = [];

function sentence(text) {
  if (!text) return "";
  const first = text.charAt(0).toUpperCase() + text.slice(1);
  return /[.!?]$/.test(first) ? first : first + ".";
}

function sizeText(bytes) {
  if (bytes < 1000) return bytes === 1 ? "1 byte" : `${bytes} bytes`;
  const units = ["kB", "MB", "GB", "TB"];
  let value = bytes / 1000;
  let unit = 0;
  while (value >= 999.5 && unit < units.length - 1) {
    value /= 1000;
    ++unit;
  }
  return `${value.toFixed(value < 10 ? 1 : 0)} ${units[unit]}`;
}

function timeText(milliseconds) {
  const time = new Date(milliseconds);
  const clock = time.toLocaleTimeString([], {hour: "2-digit", minute: "2-digit"});
  const isToday = time.toDateString() === new Date().toDateString();
  return isToday ? clock : `${time.toLocaleDateString([], {day: "numeric", month: "short"})}, ${clock}`;
}

function factsOf(job) {
  const facts = [job.printer, timeText(job.begun)];
  if (job.bytes > 0) facts.push(sizeText(job.bytes));
  if (job.copies > 1 && !job.where.includes("copies")) facts.push(`${job.copies} copies`);
  if (job.isAgain) facts.push("printed again");
  if (job.where) facts.push(job.where);
  return facts.filter(Boolean).join(" · ");
}

function announce(text) {
  const line = document.createElement("p");
  line.textContent = text;
  const all = byId("announcements");
  all.append(line);
  while (all.children.length > kSpokenMost) all.firstChild.remove();
}

async function act(entry, what) {
  const refusal = entry.part("refusal");
  refusal.hidden = true;
  let why = "";
  try {
    const answer = await fetch(`jobs/${entry.job.number}/${what}`, {method: "POST"});
    if (!answer.ok) why = (await answer.text()).trim();
  } catch {
    why = "The print client does not answer.";
  }
  refusal.textContent = why;
  refusal.hidden = why === "";
}

function makeEntry(number) {
  const element = byId("job").content.firstElementChild.cloneNode(true);
  const part = (name) => element.querySelector(`.${name}`);
  const entry = {job: null, element, part};
  element.id = `job-${number}`;
  part("title").id = `title-${number}`;
  element.setAttribute("aria-labelledby", `title-${number}`);
  part("view").href = `jobs/${number}/view`;
  part("file").href = `jobs/${number}/file`;
  part("again").addEventListener("click", () => act(entry, "again"));
  part("cancel").addEventListener("click", () => act(entry, "cancel"));
  return entry;
}

// Shows or hides; the focus of what goes moves to the job's title.
function show(entry, name, isShown) {
  const element = entry.part(name);
  if (!isShown && element === document.activeElement) entry.part("title").focus();
  element.hidden = !isShown;
}

function fill(entry, job) {
  const before = entry.job;
  entry.job = job;
  const title = job.title || "Unnamed job";
  let [word, look] = kStages[job.stage] || kStages.unknown;
  if (job.isCanceling) word = "Canceling";
  entry.part("title").textContent = title;
  entry.part("stage").textContent = word;
  entry.part("stage").className = `stage ${look}`;
  entry.part("facts").textContent = factsOf(job);
  const progress = entry.part("progress");
  progress.hidden = !["arriving", "handing-over", "printing"].includes(job.stage);
  progress.setAttribute("aria-label", `${word}: ${title}`);
  entry.part("reason").hidden = !job.cause;
  entry.part("reason").className = `reason ${look}`;
  entry.part("cause").textContent = sentence(job.cause);
  entry.part("remedy").textContent = sentence(job.remedy);
  entry.part("remedy").hidden = !job.remedy;
  for (const name of ["view", "again", "file", "cancel"])
    entry.part(name).setAttribute("aria-describedby", `title-${job.number}`);
  show(entry, "view", job.kept === ".pdf");
  show(entry, "file", job.kept !== "" && job.isOver);
  show(entry, "again", job.kept !== "" && job.isOver);
  show(entry, "cancel", !job.isOver);
  entry.part("cancel").setAttribute("aria-disabled", String(job.isCanceling));
  entry.part("cancel").textContent = job.isCanceling ? "Canceling…" : "Cancel";
  if (before && before.stage !== job.stage) announce(`${title}: ${word}. ${sentence(job.cause)}`.trim());
}

function remove(number) {
  const entry = jobs.get(number);
  if (entry.element.contains(document.activeElement)) {
    const next = entry.element.nextElementSibling || entry.element.previousElementSibling;
    (next ? next.querySelector(".title") : byId("heading")).focus();
  }
  entry.element.remove();
  jobs.delete(number);
}

// Puts the elements into order, and moves none that stands right: moving takes the focus away.
function arrange() {
  for (const number of [...jobs.keys()])
    if (!order.includes(number)) remove(number);
  const list = byId("jobs");
  let at = list.firstElementChild;
  for (const number of order) {
    const entry = jobs.get(number);
    if (!entry) continue;
    if (entry.element === at) {
      at = at.nextElementSibling;
    } else {
      list.insertBefore(entry.element, at);
    }
  }
  byId("no-jobs").hidden = jobs.size > 0;
}

function fillPrinters(printers) {
  byId("printers").replaceChildren(...printers.map((printer) => {
    const item = document.createElement("li");
    const place = document.createElement("span");
    place.className = "place";
    place.textContent = printer.place;
    item.append(printer.isDefault ? `${printer.name} (default)` : printer.name, place);
    return item;
  }));
  byId("no-printers").hidden = printers.length > 0;
}

function fillServers(servers) {
  byId("servers").replaceChildren(...servers.map((server) => {
    const item = document.createElement("li");
    item.className = server.isConnected ? "connected" : "";
    item.textContent = `${server.name}: ${server.state}`;
    return item;
  }));
}

function take(news) {
  for (const job of news.jobs) {
    if (!jobs.has(job.number)) jobs.set(job.number, makeEntry(job.number));
    fill(jobs.get(job.number), job);
  }
  if (news.order) order = news.order;
  if (news.order || news.jobs.length > 0) arrange();
  if (news.printers) fillPrinters(news.printers);
  if (news.servers) fillServers(news.servers);
}

function listen() {
  const lost = byId("lost");
  const events = new EventSource("events");
  events.onmessage = (event) => {
    lost.hidden = true;
    take(JSON.parse(event.data));
  };
  events.onerror = () => {
    lost.textContent = "The print client does not answer; what you see is how it was last. When it has been started " +
        "again, open this page again with “printclient --show”.";
    lost.hidden = false;
    if (events.readyState === EventSource.CLOSED) setTimeout(listen, 3000);
  };
}

listen();
