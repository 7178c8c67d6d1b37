// The widget of a flow in the browser; notebook_widget.py runs in the kernel.

const CONFIRMED_EVERY = 4;
const RATE_MILLISECONDS = 1000;
const LEAST_WIDTH = 470;
const CONTROLS = ["button", "input", "select"];

function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) made.addEventListener(name.slice(2), value);
    else made.setAttribute(name, value);
  }
  // JupyterLab would take the keys of a control for its own.
  if (CONTROLS.includes(tag)) made.setAttribute("data-lm-suppress-shortcuts", "true");
  made.append(...children);
  return made;
}

// The picture, and the confirmations that keep pictures coming while it is visible.
class Picture {
  constructor(model, side, onRate) {
    this.model = model;
    const size = { width: side, height: side };
    this.canvas = element("canvas", { role: "img", "aria-label": "The flow", ...size });
    this.newest = 0;
    this.confirmed = 0;
    this.isVisible = false;
    this.times = [];
    this.onRate = onRate;
    this.observer = new IntersectionObserver((entries) => this.seen(entries.at(-1).isIntersecting));
    this.observer.observe(this.canvas);
    this.onPage = () => this.ask();
    document.addEventListener("visibilitychange", this.onPage);
    this.timer = setInterval(() => this.countRate(), RATE_MILLISECONDS / 2);
  }

  close() {
    this.observer.disconnect();
    document.removeEventListener("visibilitychange", this.onPage);
    clearInterval(this.timer);
    this.isVisible = false;
  }

  seen(isVisible) {
    this.isVisible = isVisible;
    this.ask();
  }

  get isWatched() {
    return this.isVisible && document.visibilityState === "visible";
  }

  // After a time without confirmations the kernel sends nothing until it hears from here.
  ask() {
    if (this.isWatched) this.confirm();
  }

  confirm() {
    this.confirmed = this.newest;
    this.model.send({ seen: this.newest });
  }

  async show(number, png) {
    const image = await createImageBitmap(new Blob([png], { type: "image/png" }));
    if (number > this.newest) {
      this.newest = number;
      if (this.canvas.width !== image.width) this.canvas.width = this.canvas.height = image.width;
      this.canvas.getContext("2d").drawImage(image, 0, 0);
      this.canvas.dataset.picture = number;
      this.times.push(performance.now());
    }
    image.close();
    if (this.isWatched && this.newest - this.confirmed >= CONFIRMED_EVERY) this.confirm();
  }

  countRate() {
    const since = performance.now() - RATE_MILLISECONDS;
    this.times = this.times.filter((time) => time > since);
    this.onRate(this.times.length * (1000 / RATE_MILLISECONDS));
  }
}

class Controls {
  constructor(model) {
    this.model = model;
    const act = (name) => () => model.send({ do: name });
    const button = (text, name, title) =>
      element("button", { type: "button", title, onclick: act(name) }, text);
    this.play = button("Pause", "toggle", "Pause the flow, or let it run");
    this.play.classList.add("play");
    this.step = button("Step", "step", "One step, and a pause");
    this.reset = button("Reset", "reset", "The same flow again from its start");
    this.next = button("New seed", "next_seed", "A new flow, from the seed that follows");
    this.save = button("Save", "save", "Save the picture beside the notebook");
    this.seed = element("input", { type: "text", inputmode: "numeric", "aria-label": "Seed" });
    this.seed.addEventListener("change", () => model.send({ seed: this.seed.value.trim() }));
    this.seed.addEventListener("keydown", (event) => {
      if (event.key === "Enter") this.seed.blur(); // This is a change, if there is any.
    });
    this.reynolds = element("input", {
      type: "range", min: 3, max: 6, step: 0.01, "aria-label": "Reynolds number",
      oninput: () => this.setReynolds(),
    });
    this.number = element("span", { class: "number" });
    this.adapt = element("input", { type: "checkbox", onchange: act("adapt") });
    this.display = this.choice("display");
    this.palette = this.choice("palette");
    this.rate = element("span", { class: "rate" });
    this.rows = [
      element("div", { class: "row" }, this.play, this.step, this.reset, this.next,
              element("label", {}, "Seed", this.seed), this.save),
      element("div", { class: "row" }, element("label", {}, "Display", this.display),
              element("label", {}, "Palette", this.palette), this.rate),
      element("div", { class: "row" },
              element("label", { class: "wide" }, "Reynolds", this.reynolds), this.number,
              element("label", {}, this.adapt, "adapt")),
    ];
  }

  choice(key) {
    const names = this.model.get("choices")[key];
    const options = names.map((name) => element("option", {}, name));
    const made = element("select", { "aria-label": key }, ...options);
    made.addEventListener("change", () => this.model.send({ set: { [key]: made.value } }));
    return made;
  }

  setReynolds() {
    this.showReynolds(Number(this.reynolds.value));
    clearTimeout(this.waiting);
    const send = () => this.model.send({ set: { log_reynolds: Number(this.reynolds.value) } });
    this.waiting = setTimeout(send, 50);
  }

  showReynolds(logarithm) {
    this.number.textContent = Math.round(10 ** logarithm).toLocaleString("en");
  }

  show(figures) {
    const isClosed = figures.word === "closed";
    this.play.textContent = figures.running ? "Pause" : "Play";
    this.play.disabled = this.step.disabled = figures.failed || isClosed;
    const others = [this.reset, this.next, this.save, this.seed, this.display, this.palette];
    for (const one of [...others, this.adapt]) one.disabled = isClosed;
    this.adapt.checked = figures.adapted === "adapted";
    this.reynolds.disabled = isClosed || figures.adapted !== "fixed";
    const focused = this.play.getRootNode().activeElement;
    if (focused !== this.seed) this.seed.value = figures.seed;
    if (focused !== this.reynolds || this.reynolds.disabled) {
      this.reynolds.value = figures.log_reynolds;
      this.showReynolds(figures.log_reynolds);
    }
    this.display.value = figures.display;
    this.palette.value = figures.palette;
  }
}

function showFigures(place, figures) {
  const message = (text, kind) =>
    element("div", { class: `message ${kind}`, role: "status" }, text);
  const rows = figures.lines.map(([name, text]) =>
    element("tr", {}, element("td", {}, name), element("td", {}, text)));
  place.replaceChildren(
    element("div", {}, element("span", { class: "word" }, figures.word), " ",
            element("span", { class: "title" }, figures.title)),
    ...figures.notes.map((text) => message(text, "note")),
    ...(figures.error ? [message(figures.error, "error")] : []),
    ...(figures.news ? [message(figures.news, "news")] : []),
    element("table", {}, element("tbody", {}, ...rows)),
  );
}

function render({ model, el }) {
  const controls = new Controls(model);
  const picture = new Picture(model, model.get("side"), (rate) => {
    controls.rate.textContent = rate > 1 ? `${rate} pictures/s` : "";
  });
  const figures = element("div");
  const side = model.get("side");
  picture.canvas.style.width = `${side}px`;
  const width = `width: ${Math.max(side, LEAST_WIDTH)}px`;
  const root = element("div", { class: "zephane", style: width }, picture.canvas,
                       ...controls.rows, figures);
  el.append(root);
  const update = () => {
    controls.show(model.get("figures"));
    showFigures(figures, model.get("figures"));
  };
  const receive = (content, buffers) => {
    if (content.picture) picture.show(content.picture, buffers[0]);
  };
  update();
  model.on("change:figures", update);
  model.on("msg:custom", receive);
  return () => {
    picture.close();
    model.off("change:figures", update);
    model.off("msg:custom", receive);
  };
}

export default { render };
