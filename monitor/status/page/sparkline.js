// A small line of the last values.
import { number } from "./text.js";

const kNamespace = "http://www.w3.org/2000/svg";
const kStep = 2, kHeight = 24, kMargin = 2;

export const kValues = 60;

function make_svg(tag, attributes) {
  const element = document.createElementNS(kNamespace, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  return element;
}

// Where there is no value, the line has a gap. A single value is a point.
function path_of(values, lowest, highest) {
  const right = kValues * kStep, span = highest - lowest, height = kHeight - 2 * kMargin;
  let path = "", is_after_gap = true;
  values.forEach((value, i) => {
    if (value !== null) {
      const x = right - (values.length - 1 - i) * kStep;
      const y = kMargin + (span > 0 ? (highest - value) / span : 0.5) * height;
      path += is_after_gap ? `M${x} ${y.toFixed(1)}h0` : `L${x} ${y.toFixed(1)}`;
    }
    is_after_gap = value === null;
  });
  return path;
}

export class Sparkline {
  constructor() {
    this.path = make_svg("path", {});
    this.element = make_svg("svg", { role: "img", viewBox: `0 0 ${kValues * kStep + 1} ${kHeight}` });
    this.element.append(this.path);
  }

  show(values) {
    const known = values.filter((value) => value !== null);
    const lowest = Math.min(...known), highest = Math.max(...known);
    const path = path_of(values, lowest, highest);
    if (path === this.path.getAttribute("d")) return;
    this.path.setAttribute("d", path);
    this.element.setAttribute("aria-label", known.length > 0
      ? `${known.length} values from ${number(lowest)} to ${number(highest)}` : "no values");
  }
}
