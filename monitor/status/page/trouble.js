// What is wrong: a list of { key, word, rank, watch, value, text, since }, the most severe first. The
// watch is null if it is the monitor itself.
import { clock, joined, measured } from "./text.js";

const kRanks = ["critical", "warning", "monitor", "failed", "blind", "unjudged", "silenced"];

function of_thread(evidence) {
  return evidence && `thread ${evidence.tid} "${evidence.name}" waits in ${evidence.wchan ?? "the kernel"}`;
}

function of_alarms(watch) {
  return watch.alarms.map((alarm) => ({
    key: `alarm ${alarm.alarm}`,
    word: alarm.severity,
    rank: alarm.silenced ? "silenced" : alarm.severity,
    watch,
    text: joined(alarm.condition, watch.detail, watch.note, of_thread(watch.evidence),
                 alarm.silenced && "silenced"),
    since: alarm.since,
  }));
}

// A watch that cannot judge does not see what happens.
function of_state(watch) {
  if (!["failed", "blind", "unjudged"].includes(watch.state)) return [];
  return [{
    key: `${watch.state} ${watch.name}`,
    word: watch.state,
    rank: watch.state,
    watch,
    text: joined(watch.detail, watch.note) || "no reason is known",
    since: watch.since,
  }];
}

function of_monitor(status) {
  const found = [];
  const add = (key, text) => found.push({
    key: `monitor ${key}`, word: "warning", rank: "monitor", watch: null, text: joined(text), since: null,
  });
  if (!status.schedule.kept) add("schedule", `the schedule is not kept: ${status.schedule.trouble}`);
  if (!status.reload.ok) {
    add("reload", `the configuration was not accepted at ${clock(status.reload.time, status.time)}`);
  }
  for (const alert of status.alerts.filter((each) => each.failing)) {
    add(`${alert.name} ${alert.way}`, `the alert ${alert.name} (${alert.way}) fails: ${alert.last_error}`);
  }
  return found;
}

export function troubles_of(status) {
  const all = of_monitor(status).concat(
    ...status.watches.map((watch) => of_alarms(watch).concat(of_state(watch))));
  return all.sort((a, b) => kRanks.indexOf(a.rank) - kRanks.indexOf(b.rank) ||
                            Date.parse(a.since ?? 0) - Date.parse(b.since ?? 0));
}

// "critical: database.running equals 0"
export function in_words(trouble) {
  return `${trouble.word}: ${joined(trouble.watch?.name ?? "the monitor")} ${trouble.text}`;
}

export function value_of(trouble) {
  return trouble.watch ? measured(trouble.watch) : "";
}
