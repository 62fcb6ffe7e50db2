// The page a sharing link opens (s.html#<token>). The token is in the
// fragment, so the browser never sends it in a URL; the page sends it in POST
// bodies (and in the download frame's request to this server only). The
// visitor names the linked item "/" and what lies below it by "id:<file_id>".
// A link with a password asks for it once: unlock_link answers with an
// HttpOnly cookie that later requests carry.
import { h, clear, toast, formatSize, formatTime } from "./dom.js";
import { ENDPOINT, FILES, unwrap, ApiError } from "./api.js";

const token = decodeURIComponent(location.hash.replace(/^#/, ""));
const root = document.getElementById("app");
const NEEDS_PASSWORD = 1041;

function fields(params) {
  const body = new URLSearchParams();
  for (const [key, value] of Object.entries(params)) body.append(key, JSON.stringify(value));
  return body;
}

async function visit(method, params, api = FILES) {
  let response;
  try {
    response = await fetch(ENDPOINT, { method: "POST", credentials: "same-origin",
      body: fields({ api, version: 1, method, ...params, sharing_token: token }) });
  } catch {
    throw new ApiError(0, "no connection");
  }
  return unwrap(await response.text(), response.status);
}

function fetchInFrame(params) {
  const query = fields({ api: FILES, version: 1, method: "download", ...params,
    sharing_token: token, json_error: true });
  const frame = h("iframe.download-frame", { title: "download", hidden: true,
    src: ENDPOINT + "?" + query.toString() });
  frame.addEventListener("load", () => {
    let text = "";
    try { text = frame.contentDocument.body.textContent; } catch { /* not readable */ }
    frame.remove();
    try { unwrap(text); } catch (err) { toast("Download failed: " + err.message, "error"); }
  });
  document.body.append(frame);
}

async function download(item, ref) {
  if (item.type !== "dir") return fetchInFrame({ files: [ref] });
  const data = await visit("download", { files: [ref], archive_name: item.name });
  toast(`Preparing ${item.name}.zip…`);
  fetchInFrame({ task_id: data.async_task_id, archive_name: item.name });
}

function refOf(item, top) { return item === top ? "/" : "id:" + item.file_id; }

async function showFolder(top, folder, trail) {
  const ref = refOf(folder, top);
  const list = h("ul.visitor-list", { id: "visitor-list", "aria-label": "Items" });
  const crumbs = h("nav.picker-crumbs", { "aria-label": "Location" }, trail.map((f, i) =>
    i === trail.length - 1 ? h("span", { "aria-current": "location" }, f.name)
      : [h("button.link", { type: "button", onclick: () => showFolder(top, f, trail.slice(0, i + 1)) },
        f.name), " / "]));
  clear(root).append(h("header.top-bar", {}, h("span.brand", {}, "Shared with you")),
    h("main.content.visitor-content", {}, crumbs,
      h("div.toolbar", {}, h("button", { type: "button", id: "visitor-download-all",
        onclick: () => download(folder, ref) }, "Download all")), list));
  const data = await visit("list", { path: ref, limit: 1000, sort_by: "name" });
  for (const item of data.items) {
    const open = item.type === "dir"
      ? h("button.link", { type: "button", onclick: () => showFolder(top, item, [...trail, item]) }, "📁 " + item.name)
      : h("span", {}, item.name);
    list.append(h("li.visitor-item", { dataset: { name: item.name } }, open,
      ` ${item.type === "dir" ? "" : formatSize(item.size)} ${formatTime(item.modified_time)} `,
      h("button.visitor-download", { type: "button", "aria-label": `Download ${item.name}`,
        onclick: () => download(item, refOf(item, top)) }, "Download")));
  }
  if (!data.items.length) list.append(h("li", {}, "This folder is empty."));
}

function showFile(item) {
  clear(root).append(h("header.top-bar", {}, h("span.brand", {}, "Shared with you")),
    h("main.content.visitor-content", {}, h("h1.view-title", { id: "visitor-name" }, item.name),
      h("p", {}, formatSize(item.size)),
      h("button.primary", { type: "button", id: "visitor-download",
        onclick: () => download(item, "/") }, "Download")));
}

function askPassword(message) {
  const input = h("input", { type: "password", id: "visitor-password", required: true,
    "aria-label": "Password", autocomplete: "current-password" });
  const note = h("p", { role: "status", id: "visitor-note" }, message);
  const form = h("form.login-form", {}, h("h1.view-title", {}, "This link needs a password"),
    input, h("button.primary", { type: "submit", id: "visitor-unlock" }, "Open"), note);
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    try {
      await visit("unlock_link", { password: input.value }, "ZEMO.ZemoraOrvel.Sharing");
      start();
    } catch (err) { note.textContent = err.message; }
  });
  clear(root).append(h("main.content.visitor-content", {}, form));
  input.focus();
}

async function start() {
  if (!token) {
    clear(root).append(h("p", { id: "visitor-error" }, "This address holds no sharing link."));
    return;
  }
  try {
    const top = await visit("get", { path: "/" });
    top.name = top.name || "Shared";
    if (top.type === "dir") await showFolder(top, top, [top]);
    else showFile(top);
  } catch (err) {
    if (err instanceof ApiError && err.code === NEEDS_PASSWORD) return askPassword("");
    clear(root).append(h("p", { id: "visitor-error", role: "alert" }, err.message));
  }
}

window.addEventListener("hashchange", () => location.reload());
start();
