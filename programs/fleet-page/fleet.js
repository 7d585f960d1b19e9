// What the broker keeps of the boards and the rollouts. Nothing here touches the page. These are no modules: Mosquitto
// serves scripts without a type, and browsers take such modules from nobody.
"use strict";

const fleetParts = (() => {
  const DEVICES = "tarvio/v1/";
  const ROLLOUTS = "tarvio-fleet/v1/rollouts/";
  const FACTS = ["online", "system", "apps", "packages"];
  const MOST_APPS = 200; // of a board

  // Null for a text that is not JSON.
  function parsed(text) {
    try {
      return JSON.parse(text);
    } catch {
      return null;
    }
  }

  // Whoever has taken a board over says what he likes: of it stays what the page shows, in the types that it expects.
  const text = (value) => (typeof value === "string" ? value : "");
  const objects = (value) => (Array.isArray(value) ? value : []).filter((each) => each && typeof each === "object");
  const named = (value) => objects(value).filter((each) => text(each.name) !== "");

  const cleaned = {
    online: (value, payload) => (payload === "" ? null : value?.online === true), // null: no board, or no more
    system: (value) => ({
      agent: text(value?.agent),
      tags: (Array.isArray(value?.tags) ? value.tags : []).map(text).filter(Boolean),
    }),
    apps: (value) =>
      [...new Map(named(value).map((app) => [app.name, app])).values()].slice(0, MOST_APPS).map((app) => ({
        name: app.name,
        runState: text(app.run_state),
        state: text(app.state),
        version: text(app.installed_version),
      })),
    packages: (value) => named(value).map((each) => ({ name: each.name, version: text(each.version) })),
  };

  class Fleet {
    boards = new Map();
    rollouts = new Map();

    // Takes a message in. Returns the answer of a board, or null for anything else.
    take(topic, payload) {
      if (topic.startsWith(ROLLOUTS)) {
        this.#takeRollout(topic.slice(ROLLOUTS.length), payload);
        return null;
      }
      const [device, end, ...rest] = topic.slice(DEVICES.length).split("/");
      if (!topic.startsWith(DEVICES) || !end) return null;
      const value = parsed(payload);
      if (end === "answer" && rest.length === 1) {
        return { board: device, id: text(value?.id), state: text(value?.state), message: text(value?.message) };
      }
      if (!FACTS.includes(end)) return null;
      const board = this.boards.get(device) ?? { name: device, online: null, system: cleaned.system(null), apps: [], packages: [] };
      board[end] = cleaned[end](value, payload);
      this.boards.set(device, board);
      return null;
    }

    #takeRollout(id, payload) {
      const rollout = parsed(payload);
      if (!Array.isArray(rollout?.waves)) {
        this.rollouts.delete(id);
        return;
      }
      this.rollouts.set(id, {
        id,
        operator: text(rollout.operator),
        state: text(rollout.state),
        url: text(rollout.url),
        started: typeof rollout.started === "number" ? rollout.started : 0,
        waves: rollout.waves.map((wave) =>
          objects(wave).map((entry) => ({ board: text(entry.board), state: text(entry.state), message: text(entry.message) })),
        ),
      });
    }

    get known() {
      return [...this.boards.values()].filter((board) => board.online !== null);
    }

    // The boards that a filter means, by name.
    matching(filter) {
      const words = filter.toLowerCase().split(/\s+/).filter(Boolean);
      return this.known
        .filter((board) => words.every((word) => matches(board, word)))
        .sort((one, other) => (one.name < other.name ? -1 : 1));
    }
  }

  const isSame = (value, word) => value.toLowerCase() === word;

  function matches(board, word) {
    if (word === "online") return board.online;
    if (word === "offline") return !board.online;
    const [kind, rest] = word.split(/:(.*)/s);
    const [name, value] = (rest ?? "").split(/=(.*)/s);
    if (kind === "tag") return board.system.tags.some((tag) => isSame(tag, rest));
    if (kind === "package") {
      return board.packages.some((each) => isSame(each.name, name) && (value === undefined || isSame(each.version, value)));
    }
    if (kind === "app") return board.apps.some((app) => isSame(app.name, name) && isSame(app.runState, value ?? ""));
    return board.name.toLowerCase().includes(word);
  }

  // How many boards of a wave are done, have failed and have not answered.
  function countsOf(wave) {
    const counts = { done: 0, failed: 0, waiting: 0 };
    for (const board of wave) {
      if (board.state === "done") counts.done += 1;
      else if (board.state === "waiting" || board.state === "asked") counts.waiting += 1;
      else counts.failed += 1;
    }
    return counts;
  }

  const subscriptions = (client) => [
    ...FACTS.map((fact) => `${DEVICES}+/${fact}`),
    `${ROLLOUTS}+`,
    `${DEVICES}+/answer/${client}`,
  ];

  const requestTopic = (board) => `${DEVICES}${board}/request`;
  const answerTopic = (board, client) => `${DEVICES}${board}/answer/${client}`;

  return { Fleet, answerTopic, countsOf, requestTopic, subscriptions };
})();
