// Every call to the web APIs goes through here: GET for the methods that only
// read, POST form bodies with the session token header for the rest, the
// {"success", "data"|"error"} envelope unwrapped, and every failure turned
// into an ApiError whose message is a readable sentence (errors.js).
import { describeError, SESSION_CODES } from "./errors.js";

export const ENDPOINT = "/webapi/entry.cgi";
export const FILES = "ZEMO.ZemoraOrvel.Files";
const TOKEN_KEY = "zemo.token";

// Methods the framework serves to GET (it refuses GET for anything else).
const READS = new Set(["list", "list_starred", "list_labelled", "list_ancestor", "recent",
  "shared_with_me", "shared_with_others", "search", "get", "get_thumbnail", "download",
  "list_backup_tasks"]);

export class ApiError extends Error {
  constructor(code, serverMessage) {
    super(describeError(code, serverMessage));
    this.code = code;
    this.serverMessage = serverMessage || "";
  }
  get sessionLost() { return isSessionCode(this.code); }
}

// 1007 is what the file service answers a caller without an account.
function isSessionCode(code) {
  return SESSION_CODES.has(code) || code === 1007;
}

let sessionLostHandler = () => {};
export function onSessionLost(fn) { sessionLostHandler = fn; }

export function token() { return sessionStorage.getItem(TOKEN_KEY) || ""; }
export function hasSession() { return token() !== ""; }

function encode(params) {
  const body = new URLSearchParams();
  for (const [key, value] of Object.entries(params)) {
    if (value === undefined) continue;
    // The framework reads a JSON text as JSON: quote strings so a name such
    // as "123" or "true" stays a string.
    body.append(key, JSON.stringify(value));
  }
  return body;
}

// Parameters of a browser link (download, thumbnail): the cookie carries the
// session, "_token" proves the page knows its token.
export function linkUrl(method, params, api = FILES, version = 1) {
  const query = encode({ api, version, method, ...params });
  query.set("_token", token());
  return ENDPOINT + "?" + query.toString();
}

export function unwrap(text, httpStatus) {
  let envelope;
  try {
    envelope = JSON.parse(text);
  } catch {
    throw new ApiError(0, httpStatus ? `HTTP status ${httpStatus}` : "no answer");
  }
  if (envelope && envelope.success === true) return envelope.data ?? {};
  const error = (envelope && envelope.error) || {};
  const code = Number(error.code) || 0;
  throw new ApiError(code, error.errors && error.errors.message);
}

export function reportSessionLoss(err) {
  if (err instanceof ApiError && err.sessionLost) sessionLostHandler(err);
}

export async function call(method, params = {}, { api = FILES, version = 1, signal } = {}) {
  const fields = encode({ api, version, method, ...params });
  const read = READS.has(method) && api === FILES;
  const headers = { "X-ZEMO-Token": token() };
  let response;
  try {
    response = read
      ? await fetch(ENDPOINT + "?" + fields.toString(), { headers, signal, credentials: "same-origin" })
      : await fetch(ENDPOINT, { method: "POST", body: fields, headers, signal, credentials: "same-origin" });
  } catch (e) {
    if (e.name === "AbortError") throw e;
    throw new ApiError(0, "no connection");
  }
  const text = await response.text();
  try {
    return unwrap(text, response.status);
  } catch (err) {
    reportSessionLoss(err);
    throw err;
  }
}

export async function login(account, password) {
  const data = await call("login", { account, passwd: password },
    { api: "ZEMO.API.Auth", version: 1 });
  sessionStorage.setItem(TOKEN_KEY, data.token);
  return data;
}

export async function logout() {
  try {
    await call("logout", {}, { api: "ZEMO.API.Auth", version: 1 });
  } finally {
    sessionStorage.removeItem(TOKEN_KEY);
  }
}

export function forgetSession() { sessionStorage.removeItem(TOKEN_KEY); }

// Multipart upload of one file with progress. Returns {promise, abort}.
export function uploadFile(path, file, conflictAction, onProgress) {
  const xhr = new XMLHttpRequest();
  const form = new FormData();
  for (const [key, value] of Object.entries({ api: FILES, version: 1, method: "upload", path,
    type: "file", conflict_action: conflictAction, modified_time: Math.floor(file.lastModified / 1000) })) {
    form.append(key, typeof value === "string" ? JSON.stringify(value) : String(value));
  }
  form.append("file", file, file.name);
  const promise = new Promise((resolve, reject) => {
    xhr.upload.addEventListener("progress", (e) => {
      if (e.lengthComputable) onProgress(e.loaded, e.total);
    });
    xhr.addEventListener("load", () => {
      try {
        resolve(unwrap(xhr.responseText, xhr.status));
      } catch (err) {
        reportSessionLoss(err);
        reject(err);
      }
    });
    xhr.addEventListener("error", () => reject(new ApiError(0, "no connection")));
    xhr.addEventListener("abort", () => reject(new DOMException("cancelled", "AbortError")));
  });
  xhr.open("POST", ENDPOINT);
  xhr.setRequestHeader("X-ZEMO-Token", token());
  xhr.send(form);
  return { promise, abort: () => xhr.abort() };
}
