// Text for people, made of what the interface answers.

// Characters that control a terminal, or hide or reorder what stands beside them, are shown as their
// codes: text of processes is hostile.
export function visible(text) {
  return text.replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/gu, (character) =>
    `<U+${character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}>`);
}

// "3 watches"
export function counted(count, one, several = one + "s") {
  return `${count} ${count === 1 ? one : several}`;
}

// The time as the monitor's clock has it: "08:15:30", with its date if it is not today.
export function clock(time, now) {
  const [date, seconds] = [time.slice(0, 10), time.slice(11, 19)];
  return date === now.slice(0, 10) ? seconds : `${date} ${seconds}`;
}

// "12 s", "3 min", "5 h", "2 d"
export function age(time, now) {
  const seconds = Math.max(0, Math.floor((Date.parse(now) - Date.parse(time)) / 1000));
  if (seconds < 60) return `${seconds} s`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min`;
  if (seconds < 86400) return `${Math.floor(seconds / 3600)} h`;
  return `${Math.floor(seconds / 86400)} d`;
}

export function since(time, now) {
  return `${clock(time, now)} (${age(time, now)})`;
}

export function number(value) {
  return Number.isInteger(value) ? `${value}` : value.toFixed(2);
}

export function measured(watch) {
  if (watch.value === null) return "no value";
  return visible(`${number(watch.value)} ${watch.unit}`.trim());
}

// The texts that are there, one after the other.
export function joined(...texts) {
  return texts.filter((text) => text).map(visible).join("; ");
}
