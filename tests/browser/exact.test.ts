import type { Page } from "@playwright/test";
import { expect, logRows, test } from "./fixtures";
import { volumeNotifyUri, volumeUri } from "./host";

/** Numbers that JavaScript cannot hold exactly keep their digits, and a parameter is sent as it was typed. */

// One more than 2^53, and the least number of 64 bits.
const odd = "9007199254740993";
const least = "-9223372036854775808";

const form = (page: Page) => page.getByRole("form");
const response = (page: Page) => page.getByRole("region", { name: "Response" });

async function typeJson(page: Page, text: string) {
  await page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name: "Set" }).click();
  await page.getByRole("group", { name: "Parameter as" }).getByRole("button", { name: "JSON" }).click();
  await page.getByRole("textbox", { name: "Parameter as JSON" }).fill(text);
}

test("a parameter is sent as it was typed, and so is a remembered one", async ({ open }) => {
  const sent: string[] = [];
  const page = await open(`/#${volumeUri}`, {
    prepare: async (page) => {
      page.on("websocket", (socket) =>
        socket.on("framesent", ({ payload }) => {
          if (String(payload).includes('"method":"set"')) sent.push(String(payload));
        }),
      );
    },
  });
  const typed = `{\n  "REQUEST": "MODIFY", "VALUE": 1.50,\n  "VALUE": ${odd}, "large": [1e400]\n}`;
  await typeJson(page, typed);
  const example = page.getByLabel("The request that will be sent");
  const compact = `{"REQUEST":"MODIFY","VALUE":1.50,"VALUE":${odd},"large":[1e400]}`;
  await expect(example).toHaveText(
    `{"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":"${volumeUri}","parameter":${compact}}}`,
  );
  await page.getByRole("button", { name: "curl" }).click();
  await expect(example).toContainText(compact);
  await page.getByRole("button", { name: "JavaScript" }).click();
  await expect(example).toContainText(JSON.stringify(compact).slice(1, -1));

  await form(page).getByRole("button", { name: "Set", exact: true }).click();
  await expect(response(page)).toContainText("set ·");
  expect(sent).toHaveLength(1);
  expect(sent[0]).toContain(`"parameter":${typed}}}`);

  await page.reload();
  await page.getByText("Recent requests").click();
  const latest = page.getByRole("list", { name: "Recent requests" }).getByRole("listitem").first();
  await expect(latest).toContainText(compact);
  await latest.getByRole("button", { name: "Send again" }).click();
  await expect(response(page)).toContainText("set ·");
  expect(sent).toHaveLength(2);
  expect(sent[1]).toContain(`"parameter":${typed}}}`);
});

test("answers, calls and notifications show the digits that came", async ({ open }) => {
  let notify = () => {};
  const page = await open(`/#${volumeUri}`, {
    prepare: (page) =>
      page.routeWebSocket("**/jsonrpc", (socket) => {
        const server = socket.connectToServer();
        notify = () =>
          socket.send(
            `{"jsonrpc":"2.0","method":"notify","params":{"uri":"${volumeNotifyUri}","notification":{"URI":"${volumeNotifyUri}","ITEMS":[{"volValue":${odd}}]}}}`,
          );
        socket.onMessage((text) => {
          const { id, method, params } = JSON.parse(String(text));
          if (method !== "get" || !params.trace) {
            server.send(text);
            return;
          }
          const answer = `{"URI":"${volumeUri}","STATUS":0,"ITEMS":[{"VALUE":${odd},"text":"n${odd}, \\"5","list":[${least},7]}]}`;
          const calls = `[{"t":1,"thread":1,"call":"f","in":{"handle":${least}},"ret":0}]`;
          socket.send(`{"jsonrpc":"2.0","id":${id},"result":{"ret":0,"response":${answer},"calls":${calls}}}`);
        });
      }),
  });
  await form(page).getByRole("button", { name: "Get", exact: true }).click();
  const rows = response(page).getByRole("row");
  await expect(rows.filter({ hasText: "VALUE" })).toContainText(odd);
  await expect(rows.filter({ hasText: "text" })).toContainText(`n${odd}, "5`);
  await expect(rows.filter({ hasText: "list" })).toContainText(`[${least},7]`);
  await expect(response(page).getByRole("list", { name: "Platform calls of this request" })).toContainText(`handle: ${least}`);
  await response(page).getByText("Raw JSON").click();
  const raw = page.getByLabel("Raw response");
  await expect(raw).toContainText(`"VALUE": ${odd}`);
  await expect(raw).toContainText(`[${least}, 7]`);

  notify();
  await expect(logRows(page, "Notifications").first()).toContainText(`volValue ${odd}`);
});
