// Keyword search across the person's files, with the matching words of each
// result's text shown highlighted. The server marks matches in the snippet
// as <b>…</b>; the snippet is split on those two marks into text nodes and
// <mark> elements, so nothing of it is ever read as markup. The filters
// (search-filters.js) narrow it; with filters the keyword may be empty.
import { h, clear, formatSize, formatTime } from "./dom.js";
import { call } from "./api.js";
import { filesHash, go } from "./router.js";
import { download } from "./download.js";
import { SearchFilters, criteria, hasFilters } from "./search-filters.js";
import { rememberLabels, loadLabels } from "./labels.js";

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

// The route of a search: "#/search/<keyword>?<filters>".
export function searchHash(keyword, filters) {
  const query = filters ? filters.toString() : "";
  return "#/search/" + encodeURIComponent(keyword) + (query ? "?" + query : "");
}

export class SearchView {
  constructor() {
    this.filters = new SearchFilters((query) => go(searchHash(this.keyword || "", query)));
    this.status = h("p.list-status", { id: "search-status", role: "status" });
    this.list = h("ol.search-results", { id: "search-results", "aria-label": "Search results" });
    this.more = h("button", { type: "button", id: "search-more", hidden: true,
      onclick: () => this.load() }, "Show more results");
    this.element = h("section.search-view", { "aria-label": "Search" }, this.filters.element,
      this.status, this.list, this.more);
  }

  show(keyword, params = new URLSearchParams()) {
    const key = keyword + "?" + params.toString();
    if (key === this.key) return;
    this.key = key;
    this.keyword = keyword;
    this.params = params;
    this.offset = 0;
    clear(this.list);
    this.filters.set(params);
    loadLabels().then((labels) => { if (key === this.key) this.filters.set(params, labels); },
      () => {});
    document.title = `Search: ${keyword || "filters"} - ZemoraOrvel`;
    if (!keyword && !hasFilters(params)) {
      this.status.textContent = "Type a keyword or choose a filter.";
      return;
    }
    this.load();
  }

  async load() {
    const key = this.key;
    const keyword = this.keyword;
    const what = keyword ? `"${keyword}"` : "these filters";
    this.more.hidden = true;
    this.status.textContent = "Searching…";
    try {
      const params = { ...criteria(this.params), content_snippet: true, offset: this.offset, limit: PAGE };
      if (keyword) params.keyword = keyword;
      const data = await call("search", params);
      if (key !== this.key) return;
      rememberLabels(data.items);
      for (const item of data.items) this.list.append(result(item));
      this.offset += data.items.length;
      this.status.textContent = data.total === 0 ? `Nothing found for ${what}.`
        : `${data.total.toLocaleString()} result${data.total === 1 ? "" : "s"} for ${what}`;
      this.more.hidden = this.offset >= data.total;
    } catch (err) {
      if (key === this.key) this.status.textContent = err.message;
    }
  }
}
