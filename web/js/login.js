// The sign-in page. After a successful login it returns to the location the
// person came from (router.takeReturnLocation).
import { h, clear } from "./dom.js";
import { login } from "./api.js";
import { go, takeReturnLocation } from "./router.js";

export function renderLogin(root, route) {
  document.title = "Sign in - ZemoraOrvel";
  const error = h("p.form-error", { id: "login-error", role: "alert" });
  const account = h("input", { id: "login-account", name: "account", autocomplete: "username",
    required: true, autofocus: true });
  const password = h("input", { id: "login-password", name: "password", type: "password",
    autocomplete: "current-password", required: true });
  const submit = h("button.primary", { type: "submit", id: "login-submit" }, "Sign in");
  const form = h("form.login-form", { "aria-labelledby": "login-title" },
    h("h1", { id: "login-title" }, "Sign in"),
    h("label", { for: "login-account" }, "Account"), account,
    h("label", { for: "login-password" }, "Password"), password,
    error, submit);
  form.addEventListener("submit", async (event) => {
    event.preventDefault();
    error.textContent = "";
    submit.disabled = true;
    try {
      await login(account.value, password.value);
      for (const old of document.querySelectorAll(".toast.error")) old.remove();
      go(takeReturnLocation(route));
    } catch (err) {
      error.textContent = err.message;
      password.select();
    } finally {
      submit.disabled = false;
    }
  });
  clear(root).append(h("main.login-page", {}, form));
  account.focus();
}
