// The page: asks the monitor again and again, and shows what it answers.
import { Children, badge, make, make_row, say, show_list_or } from "./elements.js";
import { Sparkline, kValues } from "./sparkline.js";
import { clock, counted, joined, measured, number, since, visible } from "./text.js";
import { in_words, troubles_of, value_of } from "./trouble.js";

const kPeriodMs = 2000, kPatienceMs = 10000;

const by_id = (id) => document.getElementById(id);
const body_of = (id) => by_id(id).tBodies[0];

// "watch-3": names can have any characters, ids of elements cannot.
const ids = new Map();
function id_of(name) {
  if (!ids.has(name)) ids.set(name, `watch-${ids.size}`);
  return ids.get(name);
}

const troubles = new Children(body_of("wrong"), () => {
  const row = make_row("state", "name", "value", "trouble", "since");
  row.badge = make("span");
  row.state.append(row.badge);
  row.link = make("a");
  return row;
});

function show_trouble(row, trouble, now) {
  badge(row.badge, trouble.word);
  if (trouble.watch) {
    const target = `#${id_of(trouble.watch.name)}`;
    if (row.link.getAttribute("href") !== target) row.link.setAttribute("href", target);
    say(row.link, visible(trouble.watch.name));
    if (!row.link.isConnected) row.name.append(row.link);
  } else {
    say(row.name, "the monitor itself");
  }
  say(row.value, value_of(trouble));
  say(row.trouble, trouble.text);
  say(row.since, trouble.since ? since(trouble.since, now) : "");
}

// A screen reader says what is new, but not the whole list.
function tell_news(list, added, is_first) {
  if (is_first || added.length === 0) return;
  const kMost = 3;
  const news = list.filter((trouble) => added.includes(trouble.key)).map(in_words);
  const rest = news.length > kMost ? `, and ${news.length - kMost} more` : "";
  say(by_id("news"), `New: ${news.slice(0, kMost).join(", ")}${rest}`);
}

const watches = new Children(body_of("watches"), (name) => {
  const row = make_row("state", "name", "value", "history", "since", "details");
  row.element.id = id_of(name);
  row.element.tabIndex = -1;  // the links of the troubles lead here
  row.badge = make("span");
  row.state.append(row.badge);
  row.sparkline = new Sparkline();
  row.history.append(row.sparkline.element);
  row.reason = make("p", { class: "reason" });
  row.origin = make("p");
  row.details.append(row.reason, row.origin);
  say(row.name, visible(name));
  return row;
});

function show_watch(row, watch, now) {
  badge(row.badge, watch.state);
  say(row.value, measured(watch));
  row.sparkline.show(watch.recent);
  say(row.since, since(watch.since, now));
  const item = watch.parameter === null ? watch.item : `${watch.item} ${watch.parameter}`;
  say(row.reason, joined(watch.detail, watch.note));
  say(row.origin, joined(item, watch.pid !== null && `process ${watch.pid}`,
                         watch.flow_id !== null && `flow ${watch.flow_id}`));
  row.searched = [watch.name, watch.item, watch.parameter, watch.state].join("\n").toLowerCase();
}

function apply_filter() {
  const wanted = by_id("filter").value.trim().toLowerCase();
  let count = 0;
  for (const row of watches.shown.values()) {
    const is_wanted = row.searched.includes(wanted);
    row.element.hidden = !is_wanted;
    if (is_wanted) ++count;
  }
  say(by_id("shown"), wanted && `${count} of ${counted(watches.shown.size, "watch", "watches")}`);
}

const hung = new Children(by_id("hung"), () => {
  const thread = { facts: make("tbody"), caption: make("caption"), cells: new Map() };
  thread.element = make("table", {}, thread.caption, thread.facts);
  return thread;
});

function show_fact(thread, name, text) {
  if (!thread.cells.has(name)) {
    const cell = make(name === "Kernel stack" ? "pre" : "span");
    thread.cells.set(name, cell);
    thread.facts.append(make("tr", {}, make("th", { scope: "row" }, name), make("td", {}, cell)));
  }
  say(thread.cells.get(name), text);
}

function show_hung(thread, watch) {
  const found = watch.evidence;
  say(thread.caption, visible(`Thread ${found.tid} "${found.name}" of ${watch.name}`));
  const facts = {
    "Process": joined(`${watch.pid ?? "unknown"}`, watch.cmdline),
    "State": found.state,
    "Waits in": found.wchan ?? "unknown",
    "Stands still for": `${number(found.standing_seconds)} s`,
    "Context switches": `${found.voluntary_switches} voluntary, ${found.involuntary_switches} involuntary`,
    "Threads with this stack": `${found.threads_with_this_stack}`,
    "Suspected": found.suspected ?? "no other cause",
  };
  for (const [name, text] of Object.entries(facts)) show_fact(thread, name, visible(text));
  // Each line is "[<0>] do_exit+0x12/0x34"; the kernel hides the address.
  const stack = found.stack?.trimEnd().replaceAll("[<0>] ", "");
  const lines = (stack ?? "not readable: the monitor needs to be root").split("\n");
  show_fact(thread, "Kernel stack", lines.map(visible).join("\n"));
}

const heartbeats = new Children(
  body_of("heartbeats"),
  () => make_row("name", "process", "module", "heartbeat", "moved", "flowid", "paused"));

function in_word(value) {
  if (value === null) return "unknown";
  return typeof value === "boolean" ? (value ? "yes" : "no") : visible(`${value}`);
}

function show_heartbeats(answer) {
  heartbeats.show(answer.entries.map((entry, i) => [i, entry]),
                  (row, entry) => {
                    for (const key of Object.keys(entry)) say(row[key], in_word(entry[key]));
                  });
  show_list_or("heartbeats", answer.entries.length === 0,
               answer.error ? visible(`No table of heartbeats: ${answer.error}`)
                            : "No process is supervised.");
}

function show_summary(status, list) {
  const number_of = (rank) => list.filter((trouble) => trouble.rank === rank).length;
  const states = Object.entries(status.counts).filter(([, count]) => count > 0);
  const silenced = number_of("silenced");
  const wrong = list.length === 0 ? "Nothing is wrong."
    : `${number_of("critical")} critical, ${counted(number_of("warning"), "warning")}` +
      (silenced > 0 ? `, ${silenced} silenced.` : ".");
  say(by_id("summary"), `${wrong} ${counted(status.watches.length, "watch", "watches")}: ` +
                        states.map(([state, count]) => `${count} ${state}`).join(", "));
  document.title = (list.length > 0 ? `(${list.length}) ` : "") + visible(status.host);
}

let shown = null;  // the last status

function show(status, beats) {
  const now = status.time;
  say(by_id("host"), visible(status.host));
  say(by_id("when"), `mirt-monitor ${status.version}, started ${clock(status.started, now)}, ` +
                     `state of ${clock(now, now)}`);
  const list = troubles_of(status);
  const added = troubles.show(list.map((trouble) => [trouble.key, trouble]),
                              (row, trouble) => show_trouble(row, trouble, now));
  show_list_or("wrong", list.length === 0, "Nothing is wrong.");
  tell_news(list, added, shown === null);
  show_summary(status, list);
  watches.show(status.watches.map((watch) => [watch.name, watch]),
               (row, watch) => show_watch(row, watch, now));
  apply_filter();
  const hanging = status.watches.filter((watch) => watch.evidence !== null);
  hung.show(hanging.map((watch) => [watch.name, watch]), show_hung);
  show_list_or("hung", hanging.length === 0, "No thread hangs.");
  show_heartbeats(beats);
  shown = status;
}

function reason_of(error) {
  if (error.name === "TimeoutError") return `no answer within ${kPatienceMs / 1000} s`;
  return error instanceof TypeError ? "it cannot be reached" : visible(error.message);
}

function tell_gone(error) {
  const old = shown ? ` Everything below is from ${clock(shown.time, shown.time)}.` : "";
  say(by_id("gone"), `The monitor does not answer: ${reason_of(error)}.${old}`);
}

// Relative paths: a proxy can have put the page into a folder.
async function get(path) {
  const response = await fetch(path, { signal: AbortSignal.timeout(kPatienceMs) });
  const answer = await response.json();
  if (!response.ok) throw new Error(answer.error);
  return answer;
}

// Null if the monitor does not answer: the page then says so.
async function ask() {
  try {
    return await Promise.all([get(`api/status?recent=${kValues}`), get("api/heartbeats")]);
  } catch (error) {
    tell_gone(error);
    return null;
  }
}

let is_paused = false;

async function refresh() {
  const answers = await ask();
  if (!answers || is_paused) return;
  show(...answers);
  say(by_id("gone"), "");
}

async function refresh_for_ever() {
  for (;;) {
    const began = performance.now();
    if (!is_paused) await refresh();
    // However large the answers are, neither the monitor nor the browser is busy all the time.
    const busy = Math.min(performance.now() - began, kPatienceMs / 10);
    await new Promise((go_on) => setTimeout(go_on, Math.max(kPeriodMs, 10 * busy)));
  }
}

by_id("pause").addEventListener("click", () => {
  is_paused = !is_paused;
  say(by_id("pause"), is_paused ? "Continue" : "Pause");
});
by_id("filter").addEventListener("input", apply_filter);
by_id("wrong").addEventListener("click", () => {
  by_id("filter").value = "";  // it can hide the watch to which the link leads
  apply_filter();
});
refresh_for_ever();
