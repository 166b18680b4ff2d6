"use strict";

// Shows each arrival as soon as it is there. Without this script the page shows them whenever it is loaded.

const list = document.getElementById("arrivals");

function tell(state, text) {
  const live = document.getElementById("live");
  live.dataset.state = state;
  live.textContent = text;
}

async function insert(id) {
  if (document.getElementById(`arrival-${id}`)) return;
  const answer = await fetch(`/arrivals/${id}`);
  if (!answer.ok) return;  // later ones took its place
  const arrival = new DOMParser().parseFromString(await answer.text(), "text/html").querySelector("article");
  const older = [...list.children].find(other => Number(other.dataset.id) < id);
  list.insertBefore(arrival, older ?? null);
  arrival.classList.add("new");
  while (list.children.length > Number(list.dataset.most)) list.lastElementChild.remove();
  document.getElementById("news").textContent = arrival.querySelector("h2").textContent;
}

let inserted = Promise.resolve();
let wasOpen = false;
const events = new EventSource("/events");
events.addEventListener("arrival", event => {
  inserted = inserted.then(() => insert(Number(event.data))).catch(() => tell("off", "An arrival is missing: reload"));
});
events.addEventListener("open", () => {
  if (wasOpen) location.reload();  // the sandbox may have been started anew, with other requests of the same numbers
  wasOpen = true;
  tell("on", "Live");
});
events.addEventListener("error", () => {
  const isOver = events.readyState === EventSource.CLOSED;
  tell("off", isOver ? "Not live: reload to see more" : "Connection lost, trying again");
});
