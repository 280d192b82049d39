import type { Page } from "@playwright/test";
import { once } from "node:events";
import { createServer, request, type Server } from "node:http";
import type { AddressInfo } from "node:net";
import { expect, test } from "./fixtures";
import { muteUri, volumeUri, type Host } from "./host";

/**
 * A page of another origin that sends to the host whatever a browser allows. The set must not change, and the host must
 * continue to answer.
 */

const pinKey = "g_password__password";
const pinUri = "/tv/config/value_string";

/** The changes that the foreign page attempts: another volume, another PIN. */
const wishes = {
  volume: { REQUEST: "MODIFY", VALUE: 77 },
  pin: { REQUEST: "SET", cfgId: pinKey, valueString: "4321" },
};
const rpc = (method: string, params: object): string => JSON.stringify({ jsonrpc: "2.0", id: 1, method, params });
const setVolume = rpc("set", { uri: volumeUri, parameter: wishes.volume });
const pinTo = (pin: string): string => rpc("set", { uri: pinUri, parameter: { ...wishes.pin, valueString: pin } });
const setPin = pinTo(wishes.pin.valueString);
const configPin = rpc("tv", { words: ["config", pinKey, "4321"] });

interface Attempt {
  name: string;
  run: (page: Page) => Promise<void>;
}

// ---- the state of the set, read without a browser

const answerMs = 1000;

/** Reads volume, mute and every value of the configuration. Fails if the host does not answer in time. */
function readSet(host: Host): Promise<Record<string, unknown>> {
  const calls = [
    { jsonrpc: "2.0", id: "volume", method: "get", params: { uri: volumeUri } },
    { jsonrpc: "2.0", id: "mute", method: "get", params: { uri: muteUri } },
    { jsonrpc: "2.0", id: "config", method: "tv", params: { words: ["config"] } },
  ];
  const headers = host.token ? { authorization: `Bearer ${host.token}` } : {};
  return new Promise((resolve, reject) => {
    const sent = request(`${host.origin}/jsonrpc`, { method: "POST", headers, agent: false }, async (answer) => {
      let text = "";
      for await (const piece of answer) text += String(piece);
      const replies = JSON.parse(text) as { id: string; result: Record<string, unknown> }[];
      const { volume, mute, config } = Object.fromEntries(replies.map(({ id, result }) => [id, result]));
      if (!volume?.["response"] || !mute?.["response"] || !config?.[pinKey]) reject(new Error(text));
      resolve({ volume: volume!["response"], mute: mute!["response"], ...config });
    });
    sent.setTimeout(answerMs, () => sent.destroy(new Error(`no answer within ${answerMs} ms`)));
    sent.on("error", reject);
    sent.end(JSON.stringify(calls));
  });
}

// ---- what a page can send

interface Sending {
  url: string;
  init: RequestInit;
  /** Bytes as Latin-1 text, sent as a Blob, which has no content type in a request. */
  blob?: string;
}

// The foreign page ignores whether a request is refused or never answered.
const fetchIt = (page: Page, sending: Sending): Promise<void> =>
  page.evaluate(async ({ url, init, blob }) => {
    const body = blob === undefined ? {} : { body: new Blob([Uint8Array.from(blob, (c) => c.charCodeAt(0))]) };
    await fetch(url, { ...init, ...body, signal: AbortSignal.timeout(300) }).then(
      () => undefined,
      () => undefined,
    );
  }, sending);

/** Every method, mode and type of body. */
function* plainFetches(origin: string): Generator<Attempt> {
  for (const [url, body] of [
    [origin + volumeUri, JSON.stringify(wishes.volume)],
    [`${origin}/jsonrpc`, `[${setVolume},${setPin},${configPin}]`],
  ] as const) {
    for (const method of ["GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS"]) {
      for (const mode of ["cors", "no-cors", "same-origin"] as const) {
        for (const type of method === "GET" || method === "HEAD" ? [""] : ["text/plain", "application/json"]) {
          const init: RequestInit = { method, mode, ...(type ? { headers: { "content-type": type }, body } : {}) };
          yield { name: `fetch ${method} ${mode} ${type} ${url}`, run: (page) => fetchIt(page, { url, init }) };
        }
      }
    }
  }
  const query = `${origin}${volumeUri}?parameter=${encodeURIComponent(JSON.stringify(wishes.volume))}`;
  yield { name: `fetch ${query}`, run: (page) => fetchIt(page, { url: query, init: { mode: "no-cors" } }) };
  const keepalive: RequestInit = { method: "POST", mode: "no-cors", keepalive: true, body: setVolume };
  yield { name: "fetch keepalive", run: (page) => fetchIt(page, { url: `${origin}/jsonrpc`, init: keepalive }) };
}

/** Requests by elements of a page, and by a script without fetch. */
function* elements(origin: string): Generator<Attempt> {
  const rpcUrl = `${origin}/jsonrpc`;
  for (const enctype of ["text/plain", "multipart/form-data", "application/x-www-form-urlencoded"]) {
    for (const target of ["frame", "_blank"]) {
      yield {
        name: `form ${enctype} ${target}`,
        run: (page) =>
          page.evaluate(
            async ({ url, enctype, target, message }) => {
              document.body.innerHTML = '<iframe name="frame"></iframe><form method="post"><input type="hidden"></form>';
              const form = document.querySelector("form")!;
              // As text/plain, "name=value" is one JSON text.
              const [name, value] = [message.replace(/\}$/, ',"x":"'), '"}'];
              Object.assign(form, { action: url, enctype, target });
              Object.assign(form.querySelector("input")!, { name, value });
              form.submit();
              await new Promise((done) => setTimeout(done, 200));
            },
            { url: rpcUrl, enctype, target, message: setVolume },
          ),
      };
    }
  }
  const insert = (tag: string, attribute: string, url: string): Attempt => ({
    name: `<${tag} ${attribute}="${url}">`,
    run: (page) =>
      page.evaluate(
        async ({ tag, attribute, url }) => {
          const element = document.createElement(tag);
          const ended = new Promise((done) => (element.onload = element.onerror = done));
          if (tag === "link") element.setAttribute("rel", "stylesheet");
          element.setAttribute(attribute, url);
          document.body.replaceChildren(element);
          await Promise.race([ended, new Promise((done) => setTimeout(done, 300))]);
        },
        { tag, attribute, url },
      ),
  });
  const parameter = encodeURIComponent(JSON.stringify(wishes.volume));
  for (const url of [`${origin}${volumeUri}?parameter=${parameter}`, `${origin}/tv/cast/volume/volume_increase`]) {
    for (const [tag, attribute] of [["img", "src"], ["script", "src"], ["iframe", "src"], ["link", "href"], ["video", "src"], ["object", "data"]] as const)
      yield insert(tag, attribute, url);
  }
  yield {
    name: "EventSource",
    run: (page) =>
      page.evaluate(async (url) => {
        const source = new EventSource(url);
        await new Promise((done) => ((source.onerror = done), setTimeout(done, 300)));
        source.close();
      }, origin + volumeUri),
  };
  for (const type of ["text/plain", "application/json", ""])
    yield {
      name: `sendBeacon ${type}`,
      run: (page) =>
        page.evaluate(
          ({ url, type, message }) => void navigator.sendBeacon(url, new Blob([message], { type })),
          { url: rpcUrl, type, message: setVolume },
        ),
    };
  for (const protocols of [[], ["websocket"]])
    yield {
      name: `WebSocket ${protocols.join()}`,
      run: (page) =>
        page.evaluate(
          async ({ url, protocols, messages }) => {
            const socket = new WebSocket(url, protocols);
            socket.onopen = () => messages.forEach((message) => socket.send(message));
            await new Promise((done) => ((socket.onerror = done), setTimeout(done, 300)));
            socket.close();
          },
          { url: rpcUrl.replace("http", "ws"), protocols, messages: [setVolume, setPin, configPin] },
        ),
    };
}

/** A client's frame, masked with zeros. */
function frame(text: string): string {
  const length = text.length < 126 ? [0x80 | text.length] : [0x80 | 126, text.length >> 8, text.length & 255];
  return String.fromCharCode(0x81, ...length, 0, 0, 0, 0) + text;
}

/** Bodies that contain a further request, in case the host reads a body as one. */
function smuggled(origin: string): Record<string, string> {
  const own = `Host: ${new URL(origin).host}\r\n`;
  const put = JSON.stringify(wishes.volume);
  const upgrade =
    `GET /jsonrpc HTTP/1.1\r\n${own}Upgrade: websocket\r\nConnection: Upgrade\r\n` +
    "Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\nSec-WebSocket-Version: 13\r\n\r\n";
  return {
    PUT: `PUT ${volumeUri} HTTP/1.1\r\n${own}Content-Length: ${put.length}\r\n\r\n${put}`,
    upgrade: upgrade + frame(setVolume) + frame(setPin) + frame(configPin),
  };
}

/** Line ends and zero bytes in every part of the address, and headers that would turn the body into a request. */
function* addresses(origin: string): Generator<Attempt> {
  const injected = (header: string) => [
    `/${header}`,
    `/jsonrpc${header}`,
    `${volumeUri}${header}`,
    `/jsonrpc${header}?x`,
    `/?${header}`,
    `/jsonrpc?${header}`,
    `/?${header}=x`,
    `/?x${header}=x`,
    `/?x=${header}`,
    `/?parameter=x${header}`,
    `/?x=x&${header}`,
  ];
  const ends = ["%0a", "%0d", "%00", "%0d%0a"];
  const lengths = ends.flatMap((end) => injected(`${end}Content-Length:0`));
  const bare = ends.flatMap(injected);
  const others = [`Origin:${origin}`, "Transfer-Encoding:chunked", "Upgrade:websocket", "Content-Length:0%0d%0a%0d%0a"];
  const further = others.flatMap((header) => ends.map((end) => `/jsonrpc?${end}${header}`));
  const bodies = { ...smuggled(origin), message: setVolume };
  for (const path of [...lengths, ...bare, ...further]) {
    const url = origin + path;
    yield { name: `GET ${path}`, run: (page) => fetchIt(page, { url, init: { mode: "no-cors" } }) };
    for (const [kind, blob] of Object.entries(bodies)) {
      if (kind !== "message" && bare.includes(path)) continue;
      const init: RequestInit = { method: "POST", mode: "no-cors" };
      yield { name: `POST ${path} with ${kind} in its body`, run: (page) => fetchIt(page, { url, init, blob }) };
    }
  }
  for (const [kind, blob] of Object.entries(bodies)) {
    const init: RequestInit = { method: "POST", mode: "no-cors" };
    yield { name: `POST / with ${kind} in its body`, run: (page) => fetchIt(page, { url: `${origin}/`, init, blob }) };
  }
}

// ---- the foreign page

let foreign: Server;

test.beforeAll(async () => {
  foreign = createServer((_, answer) => {
    answer.setHeader("content-type", "text/html").end("<!doctype html><title>foreign</title><body></body>");
  });
  foreign.listen(0, "127.0.0.1");
  await once(foreign, "listening");
});

test.afterAll(() => foreign.close());

for (const name of ["127.0.0.1", "localhost"]) {
  for (const [kind, attemptsOf] of Object.entries({ fetches: plainFetches, elements, addresses })) {
    test(`a page of http://${name} changes nothing: ${kind}`, async ({ host, browser }) => {
      test.setTimeout(240_000);
      const page = await browser.newPage();
      page.context().on("page", (popup) => setTimeout(() => void popup.close(), 500));
      await page.goto(`http://${name}:${(foreign.address() as AddressInfo).port}/`);
      const before = await readSet(host);
      expect(Object.keys(before).length).toBeGreaterThan(100);

      const harms: string[] = [];
      const look = async (attempt: string) => {
        try {
          const now = await readSet(host);
          const changed = Object.keys(before).filter((key) => JSON.stringify(now[key]) !== JSON.stringify(before[key]));
          if (changed.length === 0) return;
          harms.push(`${attempt}: changed ${changed.join(", ")}`);
        } catch (reason) {
          harms.push(`${attempt}: ${String(reason)}`);
        }
        await host.kill();
        await host.start();
        await restore(host, before);
      };
      for (const attempt of attemptsOf(host.origin)) {
        await attempt.run(page);
        await look(attempt.name);
      }
      // Wait for late effects.
      await page.waitForTimeout(500);
      await look("the end");
      await page.close();
      expect(harms).toEqual([]);
    });
  }
}

/** Undoes the effect of an attempt, so that the effect of the next one is visible. */
async function restore(host: Host, before: Record<string, unknown>) {
  const { ITEMS } = before["volume"] as { ITEMS: { VALUE: number }[] };
  await host.write(volumeUri, ITEMS[0]!.VALUE);
  await fetch(`${host.origin}/jsonrpc`, { method: "POST", body: pinTo(String(before[pinKey])) });
}
