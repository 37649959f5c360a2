// The Keyferry phone page: pairs this browser with a computer, then sends texts and shows whether each
// was typed. The phone's credential is kept in localStorage; the texts themselves only in this page.
"use strict";

(() => {
  const storageKey = "keyferry.phone";
  const activePollMs = 1000;
  const idlePollMs = 5000;
  const maxShownTexts = 30;

  const $ = (id) => document.getElementById(id);
  const view = {
    notice: $("notice"), pair: $("pair-view"), send: $("send-view"), computer: $("computer"),
    computerName: $("computer-name"), presence: $("presence"), pairForm: $("pair-form"), code: $("code"),
    phoneName: $("phone-name"), pairButton: $("pair-button"), sendForm: $("send-form"), text: $("text"),
    count: $("count"), sendButton: $("send-button"), sent: $("sent"), ownName: $("own-name"),
    unpair: $("unpair-button"), remove: $("remove-button"),
  };

  let pairing = load();
  let texts = [];        // newest first: {localId, id, body, state, error}
  let computerOnline = null;
  let pollTimer = null;

  class ApiError extends Error {
    constructor(status, message) { super(message); this.status = status; }
  }

  function load() {
    try { return JSON.parse(localStorage.getItem(storageKey)) || null; } catch { return null; }
  }

  function save(value) {
    pairing = value;
    if (value) localStorage.setItem(storageKey, JSON.stringify(value));
    else localStorage.removeItem(storageKey);
  }

  async function api(method, path, body) {
    const headers = {};
    if (pairing) headers.Authorization = "Bearer " + pairing.token;
    if (body !== undefined) headers["Content-Type"] = "application/json";
    let response;
    try {
      response = await fetch(path, { method, headers, body: body === undefined ? undefined : JSON.stringify(body),
                                     cache: "no-store" });
    } catch {
      throw new ApiError(0, "Cannot reach the Keyferry service. Check your connection and try again.");
    }
    let reply = null;
    try { reply = await response.json(); } catch { reply = null; }
    if (!response.ok) {
      throw new ApiError(response.status, (reply && reply.error) || `The service answered ${response.status}.`);
    }
    return reply;
  }

  function notice(message, isError) {
    view.notice.textContent = message || "";
    view.notice.hidden = !message;
    view.notice.classList.toggle("error", Boolean(isError));
  }

  function guessPhoneName() {
    const agent = navigator.userAgent;
    if (/iPhone/.test(agent)) return "iPhone";
    if (/iPad/.test(agent)) return "iPad";
    if (/Android/.test(agent)) return "Android phone";
    return "Phone";
  }

  function showPairing(message) {
    stopPolling();
    view.pair.hidden = false;
    view.send.hidden = true;
    view.computer.hidden = true;
    if (!view.phoneName.value) view.phoneName.value = guessPhoneName();
    notice(message, Boolean(message));
  }

  function showSending() {
    view.pair.hidden = true;
    view.send.hidden = false;
    view.computer.hidden = false;
    view.computerName.textContent = pairing.computerName;
    view.ownName.textContent = pairing.name;
    renderPresence();
    renderTexts();
    schedulePoll(0);
  }

  // Every credential refusal means this phone's pairing is gone (unpaired or the computer removed).
  function pairingLost() {
    save(null);
    texts = [];
    showPairing("This phone is no longer paired: the pairing was removed. Enter a new code from your computer to pair again.");
  }

  function handleFailure(error) {
    if (error.status === 401) {
      pairingLost();
      return true;
    }
    return false;
  }

  async function pair(event) {
    event.preventDefault();
    const code = view.code.value.replace(/\D/g, "");
    const name = view.phoneName.value.trim();
    if (code.length !== 9) return notice("The pairing code has nine digits.", true);
    if (!name) return notice("Give this phone a name, so you can recognise it on your computer.", true);
    view.pairButton.disabled = true;
    try {
      const reply = await api("POST", "/v1/phones/pair", { code, name, platform: "web", appVersion: "web-1" });
      save({ token: reply.phoneToken, pairingId: reply.pairingId, computerName: reply.computerName, name });
      view.code.value = "";
      notice("");
      showSending();
      view.text.focus();
    } catch (error) {
      notice(error.message, true);
    } finally {
      view.pairButton.disabled = false;
    }
  }

  async function send(event) {
    event.preventDefault();
    const body = view.text.value;
    if (!body.trim()) return;
    const entry = { localId: crypto.randomUUID ? crypto.randomUUID() : String(Date.now()), id: null, body,
                    state: "sending", error: null };
    texts.unshift(entry);
    texts = texts.slice(0, maxShownTexts);
    view.text.value = "";
    updateCount();
    renderTexts();
    try {
      const reply = await api("POST", "/v1/phones/texts", { text: body });
      entry.id = reply.id;
      entry.state = reply.state;
      computerOnline = reply.computerOnline;
      renderPresence();
    } catch (error) {
      if (handleFailure(error)) return;
      entry.state = "failed";
      entry.error = error.message;
    }
    renderTexts();
    schedulePoll(activePollMs);
  }

  async function poll() {
    pollTimer = null;
    if (!pairing) return;
    try {
      const reply = await api("GET", "/v1/phones/texts");
      computerOnline = reply.computerOnline;
      const states = new Map(reply.texts.map((text) => [text.id, text.state]));
      for (const entry of texts) {
        if (entry.id && states.has(entry.id)) entry.state = states.get(entry.id);
      }
      renderPresence();
      renderTexts();
      if (view.notice.classList.contains("error")) notice("");
    } catch (error) {
      if (handleFailure(error)) return;
      notice(error.message, true);
    }
    const waiting = texts.some((entry) => entry.state === "sending" || entry.state === "queued" || entry.state === "delivered");
    schedulePoll(waiting ? activePollMs : idlePollMs);
  }

  function schedulePoll(delay) {
    stopPolling();
    if (pairing && !document.hidden) pollTimer = setTimeout(poll, delay);
  }

  function stopPolling() {
    if (pollTimer) clearTimeout(pollTimer);
    pollTimer = null;
  }

  function renderPresence() {
    view.presence.classList.toggle("online", computerOnline === true);
    view.presence.title = computerOnline ? "Computer online" : "Computer offline";
    if (computerOnline === false) {
      notice("Your computer is offline. Texts wait here and are typed as soon as it is back online.", false);
    } else if (computerOnline && !view.notice.classList.contains("error")) {
      notice("");
    }
  }

  const stateLabels = { sending: "Sending…", queued: "Waiting for computer", delivered: "Delivered", typed: "Typed",
                        failed: "Not sent" };

  function renderTexts() {
    const items = texts.map((entry) => {
      const item = document.createElement("li");
      const body = document.createElement("span");
      body.className = "body";
      body.textContent = entry.body;
      const state = document.createElement("span");
      state.className = "state " + entry.state;
      state.textContent = stateLabels[entry.state] || entry.state;
      if (entry.error) state.title = entry.error;
      item.dataset.state = entry.state;
      item.append(body, state);
      if (entry.error) {
        const reason = document.createElement("span");
        reason.className = "visually-hidden";
        reason.textContent = entry.error;
        item.append(reason);
      }
      return item;
    });
    view.sent.replaceChildren(...items);
  }

  function updateCount() {
    view.count.textContent = `${[...view.text.value].length} / 10000`;
  }

  async function unpair() {
    if (!confirm("Unpair this phone? It will no longer be able to send text to this computer.")) return;
    try {
      await api("POST", "/v1/phones/unpair");
      save(null);
      texts = [];
      showPairing("");
    } catch (error) {
      if (!handleFailure(error)) notice(error.message, true);
    }
  }

  async function removeComputer() {
    if (!confirm("Remove this computer? Every phone paired with it is unpaired, and the computer has to be paired again.")) return;
    try {
      await api("POST", "/v1/phones/computer/remove");
      save(null);
      texts = [];
      showPairing("");
    } catch (error) {
      if (!handleFailure(error)) notice(error.message, true);
    }
  }

  view.pairForm.addEventListener("submit", pair);
  view.sendForm.addEventListener("submit", send);
  view.text.addEventListener("input", updateCount);
  view.text.addEventListener("keydown", (event) => {
    if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) send(event);
  });
  view.code.addEventListener("input", () => { view.code.value = view.code.value.replace(/\D/g, "").slice(0, 9); });
  view.unpair.addEventListener("click", unpair);
  view.remove.addEventListener("click", removeComputer);
  document.addEventListener("visibilitychange", () => { if (!document.hidden) schedulePoll(0); });

  if (pairing && pairing.token) showSending();
  else showPairing("");
})();
