// The page: joins the link with all that shows and orders.

import { render, state, takeOrders } from "./bind.js";
import { Display } from "./display.js";
import { Feed } from "./feed.js";
import { setFolder } from "./format.js";
import { keypad, showKeys } from "./keypad.js";
import { Link } from "./link.js";
import { LISTS, greet, settings } from "./lists.js";
import { Sound } from "./sound.js";
import { keepTime, noteTimes, tick } from "./times.js";

const byId = (id) => document.getElementById(id);
const display = new Display(byId("display")), feed = new Feed(), sound = new Sound(byId("sound"), byId("heard"));

function change(news) {
  for (const [noun, values] of Object.entries(news)) Object.assign(state[noun] ??= {}, values);
  for (const noun of Object.keys(news)) LISTS[noun]?.();
  if (news.times) noteTimes();
  if (news.front) sound.follow(state.front);
  if (news.key) showKeys(document, state.key.Down);
  render();
  tick();
}

function complain(text) {
  const alert = document.createElement("p");
  alert.textContent = text;
  byId("alerts").append(alert);
  setTimeout(() => alert.remove(), 8000);
}

const link = new Link({
  hello(message) {
    for (const noun of Object.keys(state)) delete state[noun];
    sound.forget();
    Object.assign(state, message.state);
    setFolder(state.unit.Directory);
    greet(message.hello);
    document.title = `${message.hello.unit || "Virtual unit"} – panel`;
    change(message.state);
    feed.replace(message.lines);
  },
  news(message) {
    if (message.state) change(message.state);
    if (message.lines || message.dropped) feed.add(message.lines ?? [], message.dropped ?? 0);
  },
  async picture(buffer) {
    link.shown(await display.take(buffer));
  },
  up() {
    byId("lost").hidden = true;
    byId("link").textContent = "connected";
    byId("link").classList.add("lit");
  },
  down(reason) {
    byId("link").textContent = "not connected";
    byId("link").classList.remove("lit");
    byId("lost").textContent = reason ? `${reason[0].toUpperCase()}${reason.slice(1)}. The page goes on when it is back at this address.`
      : "The connection to the unit is lost. What you see is how it was; trying again ...";
    byId("lost").hidden = false;
  },
});

async function give(words) {
  const answer = await link.order(words);
  byId("status").textContent = answer.text;
  byId("status").classList.toggle("bad", !answer.ok);
  if (!answer.ok) complain(answer.text);
  return answer;
}

takeOrders(give);
keypad(document, give);
settings(give);
keepTime();
