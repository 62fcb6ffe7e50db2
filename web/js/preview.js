// Preview of one file in a dialog: an image through its thumbnail (the file
// itself when there is none), audio and video in the browser's players, text
// as text, a PDF in a new tab of the browser's viewer. Everything is fetched
// with force_download false, so the server answers it inline.
import { h, formatSize } from "./dom.js";
import { linkUrl, call, unwrap } from "./api.js";
import { extension } from "./rows.js";

const IMAGES = new Set(["jpg", "jpeg", "png", "gif", "webp", "bmp", "tif", "tiff", "heic", "heif", "avif"]);
const AUDIO = new Set(["mp3", "ogg", "oga", "wav", "flac", "m4a", "opus"]);
const VIDEO = new Set(["mp4", "webm", "ogv", "mov", "m4v"]);
const TEXT = new Set(["txt", "md", "csv", "log", "json", "xml", "yml", "yaml", "ini", "conf",
  "c", "cc", "h", "cpp", "js", "py", "sh", "css", "html"]);
// Text beyond this is offered as a download rather than read into the page.
const TEXT_LIMIT = 1024 * 1024;

export function previewKind(item) {
  if (!item || item.type === "dir") return "";
  const ext = extension(item.name);
  if (IMAGES.has(ext)) return "image";
  if (ext === "pdf") return "pdf";
  if (AUDIO.has(ext)) return "audio";
  if (VIDEO.has(ext)) return "video";
  if (TEXT.has(ext)) return "text";
  return "";
}

export function inlineUrl(item) {
  return linkUrl("download", { files: [item.path], force_download: false });
}

async function textBody(item) {
  if (item.size > TEXT_LIMIT) return h("p", {}, `This file is ${formatSize(item.size)}: download it to read it.`);
  // With json_error a refusal comes back as the JSON envelope, not the file.
  const url = linkUrl("download", { files: [item.path], force_download: false, json_error: true });
  const response = await fetch(url, { credentials: "same-origin" });
  const text = await response.text();
  if ((response.headers.get("Content-Type") || "").startsWith("application/json")) {
    let envelope = null;
    try { envelope = JSON.parse(text); } catch { /* a JSON file of the person's */ }
    if (envelope && envelope.success === false) unwrap(text);
  }
  return h("pre.preview-text", { id: "preview-text" }, text);
}

function mediaBody(item, kind) {
  if (kind === "image") {
    const img = h("img.preview-image", { id: "preview-image", alt: item.name,
      src: linkUrl("get_thumbnail", { path: item.path, size: "large", format: "jpg" }) });
    // No thumbnail (a format the decoder does not read): the file itself.
    img.addEventListener("error", () => { if (!img.dataset.full) { img.dataset.full = "1"; img.src = inlineUrl(item); } });
    return img;
  }
  return h(kind + ".preview-media", { id: "preview-" + kind, controls: true, preload: "metadata",
    src: inlineUrl(item) });
}

// Opens the preview; answers false when the file has no preview here.
export async function openPreview(item) {
  const kind = previewKind(item);
  if (!kind) return false;
  if (kind === "pdf") {
    window.open(inlineUrl(item), "_blank", "noopener");
    return true;
  }
  const body = h("div.preview-body", {}, kind === "text" ? h("p", {}, "Loading…") : mediaBody(item, kind));
  const dialog = h("dialog.dialog.preview-dialog", { id: "preview-dialog", "aria-label": item.name },
    h("div.preview-head", {}, h("h2", {}, item.name),
      h("button", { type: "button", id: "preview-close", onclick: () => dialog.close() }, "Close")),
    body);
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  if (kind === "text") {
    try {
      body.replaceChildren(await textBody(item));
    } catch (err) {
      body.replaceChildren(h("p.preview-error", { role: "alert" }, err.message));
    }
  }
  return true;
}

// Asks the owner of an item the caller may not open for access.
export async function requestAccess(path) {
  await call("request_access", { path });
}
