// The sharing dialog of one item (offered when the item's capabilities allow
// sharing): its links (create with role, expiry and password; change them
// later; copy the URL; remove) and the users it is shared with (share,
// unshare). The link URL
// carries the token in the fragment of s.html, so it never reaches a server
// log or a third party in a query string.
import { h, clear, toast, formatTime } from "./dom.js";
import { call } from "./api.js";

const SHARING = { api: "ZEMO.ZemoraOrvel.Sharing" };

export function linkAddress(token) {
  return new URL("s.html#" + token, location.href.replace(/#.*$/, "")).href;
}

export function canShare(item) {
  return Boolean(item && item.capabilities && item.capabilities.can_share);
}

function roleSelect(id) {
  return h("select", { id, "aria-label": "Role" },
    h("option", { value: "viewer" }, "Can view"), h("option", { value: "editor" }, "Can edit"));
}

// The last second of a chosen day "yyyy-mm-dd", and back.
function dayEnd(day) { return Math.floor(new Date(day + "T23:59:59").getTime() / 1000); }
function dayOf(seconds) {
  const d = new Date(seconds * 1000);
  return `${d.getFullYear()}-${String(d.getMonth() + 1).padStart(2, "0")}-${String(d.getDate()).padStart(2, "0")}`;
}

// The form that changes one link (Sharing "update_link"): role, expiry (an
// empty date removes it) and password (a new one, or removed). Only what
// changed is sent; a new or removed password makes every visitor unlock again.
function linkEditor(link, status, onSaved, onClose) {
  const role = roleSelect("link-edit-role");
  role.value = link.role === "editor" ? "editor" : "viewer";
  const expires = h("input", { type: "date", id: "link-edit-expires", "aria-label": "Expires on (empty: never)",
    value: link.expires ? dayOf(link.expires) : "" });
  const password = h("input", { type: "password", id: "link-edit-password", autocomplete: "new-password",
    "aria-label": link.has_password ? "New password (empty: keep)" : "Password (optional)",
    placeholder: link.has_password ? "New password" : "Password (optional)" });
  const drop = h("input", { type: "checkbox", id: "link-edit-no-password" });
  const form = h("form.share-form.link-edit", { id: "link-edit-form", "aria-label": "Change link" },
    role, expires, password,
    link.has_password ? h("label.check", {}, drop, "Remove the password") : null,
    h("button.primary", { type: "submit", id: "link-edit-save" }, "Save"),
    h("button", { type: "button", id: "link-edit-cancel", onclick: () => { form.remove(); onClose(); } },
      "Cancel"));
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    const params = { token: link.token };
    if (role.value !== link.role) params.role = role.value;
    const newExpiry = expires.value ? dayEnd(expires.value) : 0;
    if (newExpiry !== (link.expires || 0)) params.expires = newExpiry;
    if (password.value) params.password = password.value;
    else if (drop.checked) params.password = "";
    try {
      if (Object.keys(params).length > 1) await call("update_link", params, SHARING);
      status.textContent = Object.keys(params).length > 1 ? "Link changed." : "Nothing to change.";
      onSaved();
    } catch (err) { status.textContent = err.message; }
  });
  return form;
}

export function openShareDialog(item) {
  const links = h("ul.share-links", { id: "share-links" });
  const people = h("ul.share-people", { id: "share-people" });
  const status = h("p", { role: "status", id: "share-status" });
  const linkRole = roleSelect("link-role");
  const expires = h("input", { type: "date", id: "link-expires", "aria-label": "Expires on" });
  const password = h("input", { type: "password", id: "link-password", autocomplete: "new-password",
    "aria-label": "Link password (optional)", placeholder: "Password (optional)" });
  const userName = h("input", { id: "share-user", "aria-label": "User name", placeholder: "User name" });
  const userRole = roleSelect("share-role");

  async function refresh() {
    const data = await call("list", { path: item.path }, SHARING);
    clear(links);
    for (const link of data.links || []) {
      const url = linkAddress(link.token);
      links.append(h("li.share-link", { dataset: { token: link.token } },
        h("input.link-url", { readonly: true, value: url, "aria-label": "Link address" }),
        ` ${link.role === "editor" ? "can edit" : "can view"}`,
        link.expires ? `, until ${formatTime(link.expires)}` : "",
        link.has_password ? ", password" : "",
        h("button.link-copy", { type: "button", onclick: async () => {
          try { await navigator.clipboard.writeText(url); toast("Link copied."); } catch {
            toast("Select the address and copy it.", "info");
          }
        } }, "Copy"),
        h("button.link-change", { type: "button", "aria-expanded": "false", onclick: (event) => {
          const button = event.currentTarget;
          const open = button.closest(".share-link").querySelector(".link-edit");
          const close = () => button.setAttribute("aria-expanded", "false");
          if (open) { open.remove(); close(); return; }
          button.closest(".share-link").append(linkEditor(link, status, refresh, close));
          button.setAttribute("aria-expanded", "true");
        } }, "Change"),
        h("button.link-remove", { type: "button", onclick: async () => {
          await call("delete_link", { token: link.token }, SHARING);
          toast("Link removed.");
          refresh();
        } }, "Remove")));
    }
    clear(people);
    for (const share of data.shares || []) {
      people.append(h("li.share-person", { dataset: { name: share.name } },
        `${share.name} (${share.kind}, ${share.role})`,
        h("button.share-remove", { type: "button", onclick: async () => {
          await call("unshare", { path: item.path, kind: share.kind, name: share.name }, SHARING);
          refresh();
        } }, "Stop sharing")));
    }
  }

  async function createLink() {
    const params = { path: item.path, role: linkRole.value };
    if (expires.value) params.expires = dayEnd(expires.value);
    if (password.value) params.password = password.value;
    try {
      await call("create_link", params, SHARING);
      password.value = "";
      status.textContent = "Link created.";
      await refresh();
    } catch (err) { status.textContent = err.message; }
  }

  async function shareWithUser() {
    const name = userName.value.trim();
    if (!name) return;
    try {
      await call("share", { path: item.path, kind: "user", name, role: userRole.value }, SHARING);
      userName.value = "";
      status.textContent = `Shared with ${name}.`;
      await refresh();
    } catch (err) { status.textContent = err.message; }
  }

  const dialog = h("dialog.dialog", { id: "share-dialog", "aria-labelledby": "share-title" },
    h("h2", { id: "share-title" }, `Share "${item.name}"`),
    h("h3", {}, "Links"), links,
    h("div.share-form", {}, linkRole, expires, password,
      h("button.primary", { type: "button", id: "link-create", onclick: createLink }, "Create link")),
    h("h3", {}, "People"), people,
    h("div.share-form", {}, userName, userRole,
      h("button", { type: "button", id: "share-add", onclick: shareWithUser }, "Share")),
    status,
    h("div.dialog-buttons", {}, h("button", { type: "button", id: "share-close",
      onclick: () => dialog.close() }, "Close")));
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  refresh().catch((err) => { status.textContent = err.message; });
}
