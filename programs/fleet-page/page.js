// The operator's page: boards, their applications and the rollouts, as the broker knows them.
"use strict";

const { Fleet, answerTopic, countsOf, requestTopic, subscriptions } = fleetParts;

const MOST_BOARDS = 200; // at once on the page: a filter finds the others
const MOST_ANSWERS = 50;
const QUIET_MS = 3000; // before a number that has changed is read out
let requestSeconds = 60;
let againSeconds = 15;

const fleet = new Fleet();
let client = null;
let clientName = "";
let isDrawn = true;
let announcement = 0;
const asked = new Map(); // the board that was asked, and what asks it again, by the id of the request

const find = (id) => document.getElementById(id);

// An element with properties and children.
function make(tag, properties = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  element.append(...children);
  return element;
}

// An element of a list, made once for its key, so that the focus stays where it is.
function keyed(list, key, index, create) {
  let element = [...list.children].find((each) => each.dataset.key === key);
  if (!element) {
    element = create();
    element.dataset.key = key;
  }
  if (list.children[index] !== element) list.insertBefore(element, list.children[index] ?? null);
  return element;
}

function trim(list, count) {
  while (list.children.length > count) list.lastElementChild.remove();
}

function setText(element, text, className = element.className) {
  if (element.textContent !== text) element.textContent = text;
  if (element.className !== className) element.className = className;
}

function counted(count, word) {
  return `${count} ${word}${count === 1 ? "" : "s"}`;
}

function randomName() {
  return [...crypto.getRandomValues(new Uint8Array(8))].map((byte) => byte.toString(16).padStart(2, "0")).join("");
}

function say(text, className = "") {
  const list = find("answer-list");
  find("answers").hidden = false;
  list.prepend(make("li", { className }, text));
  trim(list, MOST_ANSWERS);
}

// Not without a connection: the library would keep it, and the board would do it when nobody expects it any more. What
// has no answer is asked again: the board does it once, but may have ended before it had written the request down.
function ask(board, command, app) {
  if (!client.connected) return;
  const id = `page-${randomName()}`;
  const end = Date.now() + requestSeconds * 1000;
  const send = () => {
    if (!client.connected) return;
    const left = Math.ceil((end - Date.now()) / 1000);
    const request = { id, command, arguments: { app }, expires_in: left };
    const properties = { responseTopic: answerTopic(board, clientName), messageExpiryInterval: left };
    client.publish(requestTopic(board), JSON.stringify(request), { qos: 1, properties }, (error) => {
      if (!error?.code || !asked.has(id)) return; // without a code the connection is lost
      forget(id);
      say(`${board}: ${command} ${app}: refused by the broker: ${error.message}`, "failed");
    });
  };
  const tick = setInterval(() => {
    if (Date.now() < end) return send();
    forget(id);
    say(`${board}: ${command} ${app}: no answer`, "failed");
  }, againSeconds * 1000);
  asked.set(id, { board, tick });
  say(`${board}: ${command} ${app} …`);
  send();
}

function forget(id) {
  clearInterval(asked.get(id).tick);
  asked.delete(id);
}

// It keeps the focus, which a button that is disabled loses.
function setAvailable(button, isAvailable) {
  const text = String(!isAvailable);
  if (button.ariaDisabled !== text) button.ariaDisabled = text;
}

function makeApp(board, app) {
  const button = (word, command) =>
    make(
      "button",
      {
        type: "button",
        ariaLabel: `${word} ${app} on ${board}`,
        onclick: (event) => {
          if (event.currentTarget.ariaDisabled !== "true") ask(board, command, app);
        },
      },
      word,
    );
  return make("li", { className: "app" }, make("span", {}, app), make("span"), button("Start", "start"), button("Stop", "stop"));
}

function drawApps(list, board) {
  const canAsk = client.connected && board.online;
  board.apps.forEach((app, index) => {
    const row = keyed(list, app.name, index, () => makeApp(board.name, app.name));
    const [, state, start, stop] = row.children;
    setText(state, [app.runState || "–", app.state, app.version].filter(Boolean).join(", "));
    setAvailable(start, canAsk && app.runState !== "running");
    setAvailable(stop, canAsk && app.runState === "running");
  });
  trim(list, board.apps.length);
}

function makeBoard(board) {
  return make("li", {}, make("h3", {}, board.name), make("p"), make("p", { className: "facts" }), make("ul"));
}

function drawBoards() {
  const boards = fleet.matching(find("filter").value);
  const shown = boards.slice(0, MOST_BOARDS);
  const online = boards.filter((board) => board.online).length;
  const rest = boards.length > shown.length ? `; the first ${shown.length} are shown, a filter finds the others` : "";
  const count = `${boards.length} of ${fleet.known.length} boards, ${online} online${rest}`;
  if (find("count").textContent !== count) {
    setText(find("count"), count);
    clearTimeout(announcement);
    announcement = setTimeout(() => setText(find("announced"), count), QUIET_MS);
  }
  const list = find("board-list");
  shown.forEach((board, index) => {
    const [, state, facts, apps] = keyed(list, board.name, index, () => makeBoard(board)).children;
    setText(state, board.online ? "online" : "offline", board.online ? "online" : "offline");
    const { tags, agent } = board.system;
    setText(facts, [tags.join(", "), counted(board.packages.length, "package"), agent && `agent ${agent}`].filter(Boolean).join(" · "));
    drawApps(apps, board);
  });
  trim(list, shown.length);
}

function makeRollout(rollout) {
  return make("li", {}, make("h3", {}, rollout.id), make("p", { className: "facts" }), make("ol"), make("ul", { className: "failed" }));
}

function drawWave(list, wave, index) {
  const counts = countsOf(wave);
  const total = wave.length;
  const row = keyed(list, String(index), index, () => {
    const bar = make("progress", { ariaLabel: `wave ${index + 1}` });
    return make("li", {}, make("span"), bar);
  });
  const [words, bar] = row.children;
  setText(words, `wave ${index + 1}: ${counts.done} of ${total} done, ${counts.failed} failed`);
  bar.max = total;
  bar.value = counts.done + counts.failed;
}

function drawRollouts() {
  const rollouts = [...fleet.rollouts.values()].sort((one, other) => other.started - one.started);
  find("rollouts").hidden = rollouts.length === 0;
  const list = find("rollout-list");
  rollouts.forEach((rollout, index) => {
    const [, facts, waves, failures] = keyed(list, rollout.id, index, () => makeRollout(rollout)).children;
    setText(facts, `${rollout.state}, begun by ${rollout.operator}: ${rollout.url}`);
    rollout.waves.forEach((wave, number) => drawWave(waves, wave, number));
    trim(waves, rollout.waves.length);
    const failed = rollout.waves
      .flat()
      .filter((entry) => !["done", "waiting", "asked"].includes(entry.state))
      .map((entry) => `${entry.board}: ${entry.state}: ${entry.message}`);
    failed.forEach((text, number) => setText(keyed(failures, String(number), number, () => make("li")), text));
    trim(failures, failed.length);
  });
  trim(list, rollouts.length);
}

// At most once for each frame, however many messages come.
function draw() {
  if (!isDrawn) return;
  isDrawn = false;
  requestAnimationFrame(() => {
    isDrawn = true;
    drawBoards();
    drawRollouts();
  });
}

function take(topic, payload) {
  const answer = fleet.take(topic, payload.toString());
  // No board answers for another one, and each answers once.
  if (answer && asked.get(answer.id)?.board === answer.board) {
    forget(answer.id);
    const isDone = answer.state === "done";
    say(`${answer.board}: ${answer.state}${isDone ? "" : `: ${answer.message}`}`, isDone ? "done" : "failed");
  }
  draw();
}

function showConnection(text, isConnected) {
  setText(find("connection"), text, isConnected ? "online" : "offline");
  find("login").hidden = isConnected;
  find("boards").hidden = !isConnected;
}

function connect(user, password) {
  client?.end(true); // which may still be trying
  clientName = `page-${randomName()}`;
  const scheme = location.protocol === "https:" ? "wss" : "ws";
  const own = mqtt.connect(`${scheme}://${location.host}`, {
    clientId: clientName,
    protocolVersion: 5,
    username: user || undefined,
    password: password || undefined,
    reconnectPeriod: 5000,
    timerVariant: "native", // else its timers are in a worker, which the page's policy refuses
  });
  client = own;
  own.on("connect", () => {
    const isFirst = !find("login").hidden;
    showConnection("Connected", true);
    if (isFirst) find("filter").focus();
    own.subscribe(subscriptions(clientName));
    draw();
  });
  own.on("message", take);
  own.on("close", () => {
    if (own.disconnecting) return; // after an error, which has said more
    setText(find("connection"), "Connection lost; trying again", "offline");
    draw();
  });
  own.on("error", (error) => {
    own.end(true);
    showConnection(`Not connected: ${error.message}`, false);
  });
}

find("login").addEventListener("submit", (event) => {
  event.preventDefault();
  setText(find("connection"), "Connecting", "offline");
  connect(find("user").value, find("password").value);
  find("password").value = "";
});
find("filter-form").addEventListener("submit", (event) => event.preventDefault());
find("filter").addEventListener("input", draw);
