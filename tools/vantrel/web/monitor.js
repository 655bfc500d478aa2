// The monitor page: polls the bridge's JSON endpoints once a second and redraws.
"use strict";
let selected = null;

function el(tag, attrs, ...children) {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs || {})) e.setAttribute(k, v);
  for (const c of children) e.append(c);
  return e;
}

async function getJson(path) {
  const r = await fetch(path, { cache: "no-store" });
  if (!r.ok) throw new Error(path + ": " + r.status);
  return r.json();
}

function rate(hz) {
  return hz > 0 ? hz.toFixed(hz < 10 ? 2 : 1) + " Hz" : "–";
}

function drawParticipants(ps) {
  const mismatches = document.getElementById("mismatches");
  mismatches.replaceChildren(...ps.mismatches.map((m) => el("div", { class: "mismatch" }, "MISMATCH " + m)));
  const out = [];
  for (const p of ps.processes) {
    const block = el("div", { class: "process" }, el("b", {}, p.program), ` pid ${p.pid} on ${p.host}`);
    for (const s of ps.sessions.filter((s) => s.pid === p.pid && s.host === p.host)) {
      block.append(el("div", { class: "session" }, "session " + s.id + (s.monitor ? " (monitor)" : "")));
      for (const a of ps.actors.filter((a) => a.session === s.id)) {
        block.append(el("div", { class: "actor" }, a.name + " ", el("span", { class: "side" }, a.module + " " + a.side),
          ` interface ${a.version}`));
        const sends = Object.entries(a.sends).map(([op, v]) => `${op}(${v.readers})`).join(" ");
        const reads = Object.entries(a.reads).map(([op, v]) => `${op}(${v.writers})`).join(" ");
        if (sends) block.append(el("div", { class: "ops" }, "sends: " + sends));
        if (reads) block.append(el("div", { class: "ops" }, "reads: " + reads));
      }
    }
    out.push(block);
  }
  document.getElementById("processes").replaceChildren(...out);
  return ps;
}

function drawTopics(t) {
  const rows = t.topics.map((x) => {
    const row = el("tr", { "data-topic": x.topic }, el("td", {}, x.topic), el("td", {}, x.operation),
      el("td", { class: "n rate" }, rate(x.hz)), el("td", { class: "n" }, x.bytes_per_s > 0 ? x.bandwidth : "–"),
      el("td", { class: "n" }, String(x.total)));
    if (x.topic === selected) row.classList.add("selected");
    row.addEventListener("click", () => { selected = x.topic; refresh(); });
    return row;
  });
  document.querySelector("#topics tbody").replaceChildren(...rows);
  return t;
}

async function drawSample() {
  if (!selected) return;
  const s = await getJson("/api/sample?topic=" + encodeURIComponent(selected));
  document.getElementById("selected").textContent = s.operation ? `${s.operation} (${s.topic})` : s.topic;
  document.getElementById("sample").textContent = s.text === null ? "(no sample yet)" : s.text;
}

async function refresh() {
  try {
    const [ps, topics] = await Promise.all([getJson("/api/ps"), getJson("/api/topics")]);
    drawParticipants(ps);
    drawTopics(topics);
    await drawSample();
    const b = topics.bridge || {};
    document.getElementById("summary").textContent =
      `domain ${ps.domain}: ${ps.processes.length} processes, ${ps.actors.length} actors, ${topics.topics.length} topics` +
      ` · ${b.clients || 0} protocol clients, ${b.dropped || 0} messages dropped`;
    document.getElementById("updated").textContent = "updated " + new Date().toLocaleTimeString();
  } catch (e) {
    document.getElementById("summary").textContent = "bridge unreachable: " + e.message;
  }
}

refresh();
setInterval(refresh, 1000);
