// Elements of the page. All text goes in as text: nothing here parses HTML.

export function make(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...children);
  return element;
}

// Touches the page only if something changes, so that a page with many watches stays quick and a
// screen reader stays quiet.
export function say(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export function badge(element, word) {
  say(element, word);
  if (element.className !== `badge ${word}`) element.className = `badge ${word}`;
}

// A row of a table: a cell for each class. The one with the class "name" is its header.
export function make_row(...classes) {
  const row = { element: make("tr") };
  for (const each of classes) {
    row[each] = each === "name" ? make("th", { scope: "row", class: each })
                                : make("td", { class: each });
    row.element.append(row[each]);
  }
  return row;
}

// The children of an element, one for each item. A child stays as long as its item does, so that the
// keyboard's focus stays where it is.
export class Children {
  // make(key): an object with the new child as `element`.
  constructor(parent, make) {
    this.parent = parent;
    this.make = make;
    this.shown = new Map();
  }

  // Shows these pairs of key and item, each key once, in this order; update(child, item) fills each child. Returns
  // the keys that are new.
  show(pairs, update) {
    const before = this.shown;
    this.shown = new Map();
    const added = [];
    let place = this.parent.firstElementChild;
    for (const [key, item] of pairs) {
      const child = before.get(key) ?? this.make(key);
      if (!before.delete(key)) added.push(key);
      this.shown.set(key, child);
      update(child, item);
      if (child.element === place) place = place.nextElementSibling;
      else this.parent.insertBefore(child.element, place);
    }
    for (const child of before.values()) child.element.remove();
    return added;
  }
}

// Shows the list, or the text in its place if the list is empty.
export function show_list_or(id, is_empty, text) {
  document.getElementById(id).hidden = is_empty;
  say(document.getElementById(`${id}-none`), is_empty ? text : "");
}
