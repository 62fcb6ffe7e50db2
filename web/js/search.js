// Keyword search across the person's files, with the matching words of each
// result's text shown highlighted. The server marks matches in the snippet
// as <b>…</b>; the snippet is split on those two marks into text nodes and
// <mark> elements, so nothing of it is ever read as markup.
import { h, clear, formatSize, formatTime } from "./dom.js";
import { call } from "./api.js";
import { filesHash } from "./router.js";
import { download } from "./download.js";

const PAGE = 50;

// "a <b>b</b> c" -> [text "a ", <mark>b</mark>, text " c"]
export function snippetNodes(snippet) {
  const nodes = [];
  const parts = String(snippet || "").split(/(<b>|<\/b>)/);
  let marked = false;
  for (const part of parts) {
    if (part === "<b>") { marked = true; continue; }
    if (part === "</b>") { marked = false; continue; }
    if (!part) continue;
    nodes.push(marked ? h("mark", {}, part) : document.createTextNode(part));
  }
  return nodes;
}

function parentOf(path) { return path.replace(/\/[^/]+$/, "") || "/mydrive"; }

function result(item) {
  const open = item.type === "dir"
    ? h("a.result-name", { href: filesHash(item.path) }, item.name)
    : h("button.link.result-name", { type: "button", onclick: () => download([item]) }, item.name);
  return h("li.search-result", { dataset: { path: item.path } },
    open,
    h("a.result-folder", { href: filesHash(parentOf(item.path)) }, parentOf(item.path)),
    h("span.result-meta", {}, item.type === "dir" ? "folder" : formatSize(item.size), " · ",
      formatTime(item.modified_time)),
    item.content_snippet ? h("p.snippet", {}, snippetNodes(item.content_snippet)) : null);
}

export class SearchView {
  constructor() {
    this.status = h("p.list-status", { id: "search-status", role: "status" });
    this.list = h("ol.search-results", { id: "search-results", "aria-label": "Search results" });
    this.more = h("button", { type: "button", id: "search-more", hidden: true,
      onclick: () => this.load() }, "Show more results");
    this.element = h("section.search-view", { "aria-label": "Search" }, this.status, this.list, this.more);
  }

  show(keyword) {
    if (keyword === this.keyword) return;
    this.keyword = keyword;
    this.offset = 0;
    clear(this.list);
    document.title = `Search: ${keyword} - ZemoraOrvel`;
    this.load();
  }

  async load() {
    const keyword = this.keyword;
    this.more.hidden = true;
    this.status.textContent = "Searching…";
    try {
      const data = await call("search", { keyword, content_snippet: true, offset: this.offset,
        limit: PAGE });
      if (keyword !== this.keyword) return;
      for (const item of data.items) this.list.append(result(item));
      this.offset += data.items.length;
      this.status.textContent = data.total === 0 ? `Nothing found for "${keyword}".`
        : `${data.total.toLocaleString()} result${data.total === 1 ? "" : "s"} for "${keyword}"`;
      this.more.hidden = this.offset >= data.total;
    } catch (err) {
      this.status.textContent = err.message;
    }
  }
}
