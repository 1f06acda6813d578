"use strict";
// The guest at each step, made of the changes that the steps hold. A path is a key of the registry or, with a
// mark and a name behind it, a value; data in quotation marks is a text.

const story = JSON.parse(document.getElementById("data").textContent);
const steps = story.steps;
const mark = "\u0001", suffix = " (Mac)";
const registered = "HKCU\\Software\\RegisteredApplications" + mark;
const words = {"+": "new", "-": "gone", "~": "changed"};
let step = 0, view = "menu", shown = null, wholeTalk = false, onlyChanges = false;

const byId = id => document.getElementById(id);
const number = new Intl.NumberFormat("en").format;
const count = (n, one, many = one + "s") => `${number(n)} ${n === 1 ? one : many}`;
const collate = new Intl.Collator("en", {sensitivity: "base", numeric: true}).compare;
const nameOf = path => path.slice(path.lastIndexOf("\\") + 1);

// An element; properties are attributes, functions its listeners.
function make(tag, properties, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties ?? {})) {
    if (typeof value === "function") element.addEventListener(name, value);
    else if (value === true) element.setAttribute(name, "");
    else if (value !== false && value != null) element.setAttribute(name, value);
  }
  element.append(...children.flat().filter(child => child != null && child !== false));
  return element;
}
const badge = sign => sign && make("span", {class: "mark", "data-mark": sign},
  make("span", {"aria-hidden": "true"}, sign === "-" ? "−" : sign), make("span", {class: "unseen"}, words[sign]));

// ---- The state at a step -------------------------------------------------------------------------------------

const parts = ["registry", "owners", "opens", "files", "launchers", "shortcuts"];
const states = [];

function stateAt(index) {
  if (index < 0) return Object.fromEntries([...[...parts, "own", "apps"].map(part => [part, new Map()]), ["catalogue", []]]);
  if (states[index]) return states[index];
  const before = stateAt(index - 1), here = steps[index], state = {catalogue: here.catalogue ?? before.catalogue};
  for (const part of parts) {
    state[part] = new Map(before[part]);
    for (const [path, now] of here[part]) now === null ? state[part].delete(path) : state[part].set(path, now);
  }
  state.own = new Map();
  for (const [path, app] of state.owners) (state.own.get(app) ?? state.own.set(app, []).get(app)).push(path);
  state.apps = new Map([...state.launchers].map(([path, launcher]) => [nameOf(path).slice(0, -4), {path, ...launcher}]));
  return states[index] = state;
}

// What differs between a step and the one before; the first step is where the story starts from.
function marksAt(index, part) {
  const marks = new Map();
  if (index === 0) return marks;
  const before = stateAt(index - 1)[part];
  for (const [path, now] of steps[index][part]) marks.set(path, now === null ? "-" : before.has(path) ? "~" : "+");
  return marks;
}

function appMarks(index) {
  const marks = new Map(), now = stateAt(index), before = index > 0 ? stateAt(index - 1) : now;
  const entries = marksAt(index, "registry");
  for (const app of new Set([...before.apps.keys(), ...now.apps.keys()])) {
    if (!before.apps.has(app)) marks.set(app, "+");
    else if (!now.apps.has(app)) marks.set(app, "-");
    else if ([...now.own.get(app) ?? [], ...before.own.get(app) ?? []].some(path => entries.has(path)) ||
             marksAt(index, "launchers").has(now.apps.get(app).path)) marks.set(app, "~");
  }
  return marks;
}

const listed = (state, app) => state.catalogue.find(each => each.name + suffix === app);

// ---- Parts of the page ---------------------------------------------------------------------------------------

const picture = (icon, alt, size) => make("img", {src: story.icons[icon.icon], alt, width: size ?? icon.size,
  height: size ?? icon.size});
function iconOf(app, size) {
  const launcher = stateAt(step).apps.get(app) ?? stateAt(step - 1).apps.get(app);
  const icons = [...launcher?.icons ?? []].sort((a, b) => a.size - b.size);
  const best = icons.find(icon => icon.size >= size) ?? icons.at(-1);
  return best ? picture(best, "", size) : make("span", {class: "blank", style: `width:${size}px;height:${size}px`});
}
const appButton = (app, sign) => make("button", {class: "app", click: () => openCard(app)}, iconOf(app, 16), app,
  badge(sign));
const found = (...texts) => {
  const wanted = byId("filter").value.trim().toLowerCase();
  return !wanted || texts.some(text => text?.toLowerCase().includes(wanted));
};
const nothing = text => make("p", {class: "nothing"}, byId("filter").value.trim() ? "Nothing matches the filter." : text);

function renderSteps() {
  byId("steps").replaceChildren(...steps.map((each, index) => make("li", {},
    make("button", {"aria-current": index === step && "step", click: () => go(index)}, make("i"),
      make("span", {class: "unseen"}, `Step ${index + 1} of ${steps.length}: `), make("span", {}, each.title)))));
  byId("steps").querySelector("[aria-current]")?.scrollIntoView({block: "nearest", inline: "nearest"});
  byId("slider").style.setProperty("--steps", steps.length);
  Object.assign(byId("slider"), {max: steps.length - 1, value: step});
  byId("slider").setAttribute("aria-valuetext", steps[step].title);
}

function renderSummary() {
  const state = stateAt(step), marks = appMarks(step), entries = marksAt(step, "registry");
  byId("step-title").textContent = steps[step].title;
  byId("facts").textContent = `Step ${step + 1} of ${steps.length}: ${count(state.apps.size, "application")}, ` +
    count(state.registry.size, "registry entry", "registry entries");
  const rows = ["+", "-", "~"].flatMap(sign => {
    const apps = [...marks].filter(each => each[1] === sign).map(each => each[0]).sort(collate);
    return apps.length ? [make("dt", {}, badge(sign), `${apps.length} ${words[sign]}`),
      make("dd", {}, firstOf(apps.map(app => appButton(app))))] : [];
  });
  if (entries.size) {
    const signs = ["+", "-", "~"].map(sign => [sign, [...entries.values()].filter(each => each === sign).length]);
    rows.push(make("dt", {}, "Registry"), make("dd", {}, signs.filter(each => each[1]).map(([sign, n]) =>
      make("span", {class: "tally"}, badge(sign), `${number(n)} ${words[sign]}`))));
  }
  const host = catalogueChanges(stateAt(step - 1).catalogue, state.catalogue);
  if (host.length && steps[step].sharing && stateAt(step - 1).catalogue.length) rows.push(make("dt", {}, "On the host"), make("dd", {}, firstOf(host)));
  byId("changes").replaceChildren(rows.length ? make("dl", {}, rows) : make("p", {class: "nothing"},
    step === 0 ? "The story begins here." : "Nothing in the guest came, went or changed."));
}

function firstOf(items) {
  const most = 12;
  return [...items.slice(0, most),
    items.length > most && make("span", {class: "quiet"}, `and ${number(items.length - most)} more`)];
}

function catalogueChanges(before, now) {
  const was = new Map(before.map(app => [app.bundleId, app])), is = new Map(now.map(app => [app.bundleId, app]));
  const lines = [];
  for (const [id, app] of is) {
    const old = was.get(id);
    if (!old) lines.push(["+", app.name]);
    else if (old.name !== app.name) lines.push(["~", `${old.name} is now ${app.name}`]);
    else if (JSON.stringify(old) !== JSON.stringify(app)) lines.push(["~", app.name]);
  }
  for (const [id, app] of was) if (!is.has(id)) lines.push(["-", app.name]);
  return lines.map(([sign, text]) => make("span", {class: "tally"}, badge(sign), text));
}

const choice = (checked, text, take) => make("label", {class: "choice"}, make("input", {type: "checkbox", checked,
  change: event => {
    take(event.target.checked);
    render();
  }}), text);
// Rows of cells, of which the first is the row's head.
const grid = (heads, rows) => rows.length ? make("table", {},
  make("thead", {}, make("tr", {}, heads.map(text => make("th", {scope: "col"}, text)))),
  make("tbody", {}, rows.map(([first, ...cells]) => make("tr", {}, make("th", {scope: "row"}, first),
    cells.map((cell, i) => make("td", {"data-label": heads[i + 1]}, cell)))))) : nothing("None.");

const views = {
  menu(state) {
    const marks = appMarks(step), apps = new Set(state.apps.keys());
    for (const [app, sign] of marks) if (sign === "-") apps.add(app);
    const shownApps = [...apps].filter(app => found(app, state.apps.get(app)?.bundleId)).sort(collate);
    const without = steps[step].sharing ? state.catalogue.filter(app => !state.apps.has(app.name + suffix)) : [];
    return [
      shownApps.length ? make("ul", {class: "tiles"}, shownApps.map(app => make("li", {},
        make("button", {class: "tile", "data-app": app, "data-mark": marks.get(app), click: () => openCard(app)}, iconOf(app, 48),
          make("span", {}, app), badge(marks.get(app)))))) : nothing("The Start menu shows no application of the host."),
      without.length > 0 && make("p", {class: "note"}, "Shared by the host, without a launcher: ",
        without.map(app => app.icons.some(icon => icon.accepted) ? app.name : `${app.name} (no icon that the guest takes)`)
          .join(", ")),
    ];
  },

  opens(state) {
    const table = (caption, head, isKind) => {
      const rows = [...state.opens].filter(([name]) => isKind(name)).sort((a, b) => collate(a[0], b[0]))
        .map(([name, {why, app, otherwise, offered}]) => [name, offered, [why, app, otherwise]])
        .filter(([name, apps, words]) => found(name, ...words, ...apps));
      return [make("h3", {}, caption), grid([head, "Opens with", "Why", "Offered"],
        rows.map(([name, apps, [reason, app, text]]) => [name, app ? appButton(app) : make("span", {class: "quiet"}, text),
          make("span", {class: "why", "data-why": reason}, reason), apps.length ? apps.map(each => appButton(each)) : "–"]))];
    };
    const every = [...state.apps.keys()].filter(app => listed(state, app)?.anyType);
    const isAddress = name => name.endsWith(":"), capable = app => [...state.opens]
      .filter(([name, {offered}]) => isAddress(name) && offered.includes(app)).map(([name]) => name.slice(0, -1));
    const programs = [...state.registry].filter(([path]) => path.startsWith(registered))
      .map(([path]) => path.split(mark)[1]).filter(app => found(app, ...capable(app))).sort(collate);
    return [
      every.length > 0 && make("p", {class: "note"}, "Offered for every type: ", every.map(app => appButton(app))),
      table("Files", "Type", name => !isAddress(name)),
      table("Addresses", "Scheme", isAddress),
      make("h3", {}, "Default programs"),
      grid(["Program", "Can open"], programs.map(app => [state.apps.has(app) ? appButton(app) : app, capable(app).join(", ") || "–"])),
    ];
  },

  registry(state) {
    const marks = marksAt(step, "registry"), before = step > 0 ? stateAt(step - 1).registry : new Map();
    const entries = [...state.registry, ...[...marks].filter(each => each[1] === "-").map(([path]) => [path, before.get(path)])]
      .filter(([path, data]) => (!onlyChanges || marks.has(path)) && found(path.replace(mark, "\\"), data));
    const root = {children: new Map(), values: []};
    for (const [path, data] of entries) {
      const [key, value] = path.split(mark);
      let node = root;
      const changed = marks.has(path) ? 1 : 0;
      for (const name of key.split("\\")) {
        const id = name.toLowerCase();
        if (!node.children.has(id)) node.children.set(id, {name, children: new Map(), values: [], changed: 0});
        node = node.children.get(id);
        node.changed += changed;
      }
      if (value === undefined) node.mark = marks.get(path);
      else node.values.push({name: value || "(default)", data, old: before.get(path), mark: marks.get(path)});
    }
    const searching = byId("filter").value.trim() !== "" && entries.length < 400;
    const few = [...marks.keys()].length < 400;
    return [
      choice(onlyChanges, `Only what this step changed (${number(marks.size)})`, checked => onlyChanges = checked),
      entries.length ? make("div", {class: "tree"}, branches(root, 0, node => searching || (few && node.changed > 0)))
        : nothing("Nothing."),
    ];
  },

  talk() {
    const all = steps.flatMap((each, index) => wholeTalk || index === step ? each.conversation : []);
    const talk = all.filter(each => found(each.code, each.direction, ...each.items.flat()));
    return [
      choice(wholeTalk, `All steps (${number(steps.reduce((sum, each) => sum + each.conversation.length, 0))})`,
        checked => wholeTalk = checked),
      talk.length ? make("ol", {class: "talk"}, talk.map(each => make("li", {}, lazy(make("summary", {},
        make("span", {class: "time"}, `${each.ms.toFixed(1)} ms`),
        make("span", {class: "way", "data-way": each.direction}, {command: "host ⇢ guest", request: "guest → host",
          reply: "guest ← host"}[each.direction]),
        make("b", {}, each.code), make("span", {class: "gist"}, gist(each)),
        make("span", {class: "size"}, `${number(each.size)} bytes`)),
      () => [make("dl", {class: "fields"}, [["step", each.step], ["direction", each.direction], ["result", each.result],
        ["status", each.status], ...(each.fault ? [["fault", each.fault]] : []), ...each.items]
        .flatMap(([name, value]) => [make("dt", {}, name), make("dd", {}, String(value))]))], false))))
        : nothing("Nothing was said in this step."),
    ];
  },
};

function gist(each) {
  if (each.fault) return each.fault;
  if (each.result || each.status) return each.result ? `refused, result ${each.result}` : `failed, status ${each.status}`;
  if (each.direction !== "reply") return each.items.filter(item => item[0] !== "room").map(item => item[1]).join(", ");
  const values = name => each.items.filter(item => item[0] === name).map(item => item[1]);
  if (each.code === "list") return count(values("bundleId").length, "application");
  if (each.code === "icons") return values("icon").map(icon => icon.split(",")[0]).join(", ");
  return [["types", "documentType"], ["defaults", "defaultType"], ["schemes", "urlScheme"]]
    .filter(([, name]) => values(name).length).map(([plural, name]) => `${plural} ${values(name).join(", ")}`)
    .concat(values("anyType").includes("1") ? "any type" : []).join("; ") || "nothing";
}

// A disclosure whose content is made when it is first opened.
function lazy(summary, content, open) {
  const details = make("details", {open}, summary);
  const fill = () => details.open && details.childElementCount === 1 && details.append(...content());
  details.addEventListener("toggle", fill);
  fill();
  return details;
}

function branches(node, depth, opens) {
  const valueRow = each => make("li", {class: "value", "data-mark": each.mark}, badge(each.mark),
    make("span", {class: "name"}, each.name), shownData(each));
  const keyRow = child => {
    let name = child.name, inner = child;
    while (inner.children.size === 1 && inner.values.length === 0) {  // a chain of keys takes one line
      inner = inner.children.values().next().value;
      name += "\\" + inner.name;
    }
    const title = [badge(inner.mark), make("span", {class: "name"}, name),
      inner.changed > 0 && !inner.mark && make("span", {class: "count", title: "changes below"}, number(inner.changed))];
    const empty = inner.children.size + inner.values.length === 0;
    return make("li", {"data-mark": inner.mark}, empty ? make("span", {class: "leaf"}, title)
      : lazy(make("summary", {}, title), () => [branches(inner, depth + 1, opens)], depth < 1 || opens(inner)));
  };
  return make("ul", {}, node.values.sort((a, b) => collate(a.name, b.name)).map(valueRow),
    [...node.children.values()].sort((a, b) => collate(a.name, b.name)).map(keyRow));
}
function shownData({data, old, mark: sign}) {
  const readable = text => text.startsWith('"') ? text.slice(1, -1) || "(empty)" : text;
  return make("span", {class: "data"}, sign === "~" && make("del", {}, readable(old)), sign === "~" && " ", readable(data));
}

// ---- An application's card -----------------------------------------------------------------------------------

function openCard(app) {
  shown = app;
  renderCard();
  if (!byId("card").open) byId("card").showModal();
}

function renderCard() {
  const now = stateAt(step), before = stateAt(Math.max(step - 1, 0)), gone = !now.apps.has(shown);
  const state = gone && before.apps.has(shown) ? before : now, launcher = state.apps.get(shown);
  const close = make("button", {class: "close", "aria-label": "Close", click: () => byId("card").close()}, "×");
  const head = make("header", {}, iconOf(shown, 48), make("div", {}, make("h2", {id: "card-title"}, shown),
    make("p", {class: "quiet"}, launcher?.bundleId ?? "not in the guest at this step")), badge(appMarks(step).get(shown)), close);
  if (!launcher) return byId("card").replaceChildren(head);
  const shared = steps.slice(0, step + 1).map((_, index) => listed(stateAt(index), shown)).findLast(Boolean);
  const link = [...state.shortcuts].find(([path]) => nameOf(path) === shown + ".lnk");
  const marks = marksAt(step, "registry"), own = [...new Set([...now.own.get(shown) ?? [], ...before.own.get(shown) ?? []])]
    .filter(path => path.includes(mark) || marks.has(path)).sort(collate);
  const list = rows => make("dl", {class: "fields"}, rows.flatMap(([name, value]) => [make("dt", {}, name), make("dd", {}, value)]));
  byId("card").replaceChildren(head,
    make("h3", {}, "Icons"), make("ul", {class: "icons"}, iconPairs(launcher, shared)),
    make("h3", {}, "Version information"), list(Object.entries(launcher.version)
      .filter(([key, value]) => value && !/^(VS_|Translation)/.test(key))),
    make("h3", {}, "Shortcut"), link ? list([["File", link[0]], ["Target", link[1].target], ["Description", link[1].description]])
      : make("p", {class: "nothing"}, "There is none."),
    make("h3", {}, "Launcher"), list([["File", launcher.path], ["Name", launcher.name], ["Content", state.files.get(launcher.path) ?? ""]]),
    make("h3", {}, `Registry entries of its own (${own.length})`), make("ul", {class: "entries"}, own.map(path => {
      const [key, value] = path.split(mark), sign = marks.get(path);
      const data = now.registry.get(path) ?? before.registry.get(path) ?? "";
      return make("li", {"data-mark": sign}, badge(sign), make("span", {class: "key"}, key),
        value !== undefined && make("span", {class: "name"}, value || "(default)"),
        value !== undefined && shownData({data, old: before.registry.get(path) ?? "", mark: sign}));
    })));
}

// Each size as it is in the launcher and as the catalogue has it, and whether they are the same picture.
function iconPairs(launcher, shared) {
  const sizes = new Set([...launcher.icons, ...shared?.icons ?? []].map(icon => icon.size));
  return [...sizes].sort((a, b) => a - b).map(size => {
    const is = launcher.icons.find(icon => icon.size === size), asked = shared?.icons.find(icon => icon.size === size);
    const verdict = !asked ? "not in the catalogue" : is ? (is.icon === asked.icon ? "the same" : "different")
      : asked.accepted ? "missing in the launcher" : "refused: not 32 bits";
    const one = (icon, text) => make("div", {}, icon ? picture(icon, `${size} pixels, ${text}`) : make("span", {class: "blank"}, "–"),
      make("span", {}, text));
    return make("li", {}, make("h4", {}, `${size} × ${size}`), make("div", {class: "pair"}, one(is, "launcher"), one(asked, "catalogue")),
      make("p", {class: "why", "data-why": verdict === "the same" ? "claimed" : "foreign"}, verdict));
  });
}

// ---- Going about ---------------------------------------------------------------------------------------------

function render() {
  const active = document.activeElement, app = active?.dataset.app;
  const focused = app ? `[data-app="${CSS.escape(app)}"]` : active?.type === "checkbox" && "input";
  for (const button of document.querySelectorAll("[data-view]")) {
    button.setAttribute("aria-pressed", String(button.dataset.view === view));
    byId(button.dataset.view).hidden = button.dataset.view !== view;
  }
  byId(view).replaceChildren(...views[view](stateAt(step)).flat().filter(Boolean));
  if (focused) byId(view).querySelector(focused)?.focus();
}
function go(index) {
  step = Math.min(Math.max(index, 0), steps.length - 1);
  const hadFocus = document.activeElement?.closest("#steps");
  renderSteps();
  if (hadFocus) byId("steps").querySelector("[aria-current]").focus();
  renderSummary();
  render();
  if (byId("card").open) renderCard();
}

document.addEventListener("keydown", event => {
  const moves = {ArrowLeft: step - 1, ArrowRight: step + 1}[event.key];
  if (moves === undefined || event.altKey || event.ctrlKey || event.metaKey || event.target.type === "search") return;
  event.preventDefault();
  go(moves);
});
byId("slider").addEventListener("input", event => go(Number(event.target.value)));
byId("filter").addEventListener("input", render);
byId("card").addEventListener("click", event => event.target === byId("card") && byId("card").close());
for (const button of document.querySelectorAll("[data-view]")) {
  button.addEventListener("click", () => {
    view = button.dataset.view;
    render();
  });
}
if (steps.length > 0) go(Math.max(steps.findIndex(each => each.sharing), 0));
