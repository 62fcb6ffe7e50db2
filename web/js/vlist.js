// A virtualised list or grid: only the rows in view plus a margin exist in
// the DOM, positioned inside a sizer as tall as all rows together, so a
// folder of 100,000 items scrolls like one of 100. Rows are reused.
import { h } from "./dom.js";

const MARGIN_LINES = 8;

export class VirtualList {
  // options: {label, renderRow(el, item, index), source (PagedSource)}
  constructor(options) {
    this.options = options;
    this.source = options.source;
    this.grid = false;
    this.sizer = h("div.vlist-sizer", { role: "presentation" });
    this.viewport = h("div.vlist", { role: "listbox", tabindex: "0", "aria-multiselectable": "true",
      "aria-label": options.label, id: "file-list" }, this.sizer);
    this.rows = new Map();   // index -> element
    this.frame = 0;
    this.viewport.addEventListener("scroll", () => this.schedule());
    new ResizeObserver(() => this.schedule()).observe(this.viewport);
  }

  setGrid(grid) {
    this.grid = grid;
    this.viewport.classList.toggle("grid", grid);
    this.clearRows();
    this.schedule();
  }

  metrics() {
    const width = this.viewport.clientWidth || 320;
    if (!this.grid) return { columns: 1, lineHeight: 40, tileWidth: width };
    const columns = Math.max(1, Math.floor(width / 152));
    return { columns, lineHeight: 176, tileWidth: Math.floor(width / columns) };
  }

  clearRows() {
    for (const el of this.rows.values()) el.remove();
    this.rows.clear();
  }

  schedule() {
    if (this.frame) return;
    this.frame = requestAnimationFrame(() => { this.frame = 0; this.render(); });
  }

  // Makes the row at index visible.
  reveal(index) {
    const { columns, lineHeight } = this.metrics();
    const top = Math.floor(index / columns) * lineHeight;
    const view = this.viewport;
    if (top < view.scrollTop) view.scrollTop = top;
    else if (top + lineHeight > view.scrollTop + view.clientHeight) {
      view.scrollTop = top + lineHeight - view.clientHeight;
    }
    this.schedule();
  }

  render() {
    const total = Math.max(this.source.total, 0);
    const { columns, lineHeight, tileWidth } = this.metrics();
    this.sizer.style.height = Math.ceil(total / columns) * lineHeight + "px";
    const view = this.viewport;
    const firstLine = Math.max(0, Math.floor(view.scrollTop / lineHeight) - MARGIN_LINES);
    const lastLine = Math.ceil((view.scrollTop + view.clientHeight) / lineHeight) + MARGIN_LINES;
    const from = firstLine * columns;
    const to = Math.min(total, (lastLine + 1) * columns) - 1;
    if (this.source.total < 0) this.source.ensure(0, 0);
    else if (to >= from) this.source.ensure(from, to);
    for (const [index, el] of this.rows) {
      if (index < from || index > to) { el.remove(); this.rows.delete(index); }
    }
    for (let i = from; i <= to; i++) {
      let el = this.rows.get(i);
      if (!el) {
        el = h("div.vrow", { role: "option", id: "row-" + i, dataset: { index: String(i) } });
        this.rows.set(i, el);
        this.sizer.append(el);
      }
      const line = Math.floor(i / columns);
      const column = i % columns;
      el.style.transform = `translate(${column * tileWidth}px, ${line * lineHeight}px)`;
      el.style.width = this.grid ? tileWidth + "px" : "100%";
      el.style.height = lineHeight + "px";
      el.setAttribute("aria-setsize", String(total));
      el.setAttribute("aria-posinset", String(i + 1));
      this.options.renderRow(el, this.source.get(i), i);
    }
    if (this.options.afterRender) this.options.afterRender();
  }

  // Re-renders the rows in the DOM (selection or marks changed).
  refresh() {
    for (const [i, el] of this.rows) this.options.renderRow(el, this.source.get(i), i);
  }
}
