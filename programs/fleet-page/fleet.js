// What the broker keeps of the boards and the rollouts. Nothing here touches the page. These are no modules: Mosquitto
// serves scripts without a type, and browsers take such modules from nobody.
"use strict";

const fleetParts = (() => {
  const DEVICES = "tarvio/v1/";
  const ROLLOUTS = "tarvio-fleet/v1/rollouts/";
  const FACTS = ["online", "system", "apps", "packages"];

  // Null for a text that is not JSON.
  function parsed(text) {
    try {
      return JSON.parse(text);
    } catch {
      return null;
    }
  }

  class Fleet {
    boards = new Map();
    rollouts = new Map();

    // Takes a message in. Returns the answer of a board, or null for anything else.
    take(topic, text) {
      if (topic.startsWith(ROLLOUTS)) {
        this.#takeRollout(topic.slice(ROLLOUTS.length), text);
        return null;
      }
      const [device, end, ...rest] = topic.slice(DEVICES.length).split("/");
      if (!topic.startsWith(DEVICES) || !end) return null;
      if (end === "answer" && rest.length === 1) return parsed(text);
      if (!FACTS.includes(end)) return null;
      const board = this.boards.get(device) ?? { name: device };
      board[end] = parsed(text);
      this.boards.set(device, board);
      return null;
    }

    #takeRollout(id, text) {
      const rollout = parsed(text);
      if (Array.isArray(rollout?.waves) && rollout.waves.every(Array.isArray)) {
        this.rollouts.set(id, rollout);
      } else {
        this.rollouts.delete(id);
      }
    }

    // The boards that a filter means, by name.
    matching(filter) {
      const words = filter.toLowerCase().split(/\s+/).filter(Boolean);
      return [...this.boards.values()]
        .filter((board) => words.every((word) => matches(board, word)))
        .sort((one, other) => (one.name < other.name ? -1 : 1));
    }
  }

  function isOnline(board) {
    return board.online?.online === true;
  }

  function tagsOf(board) {
    return Array.isArray(board.system?.tags) ? board.system.tags : [];
  }

  function appsOf(board) {
    return Array.isArray(board.apps) ? board.apps : [];
  }

  function matches(board, word) {
    if (word === "online") return isOnline(board);
    if (word === "offline") return !isOnline(board);
    if (word.startsWith("tag:")) return tagsOf(board).some((tag) => tag.toLowerCase() === word.slice(4));
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

  return { Fleet, answerTopic, appsOf, countsOf, isOnline, requestTopic, subscriptions, tagsOf };
})();
