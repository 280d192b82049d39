import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import type { Page } from "@playwright/test";
import type * as Axe from "axe-core";

/** What axe-core finds on a page. */

const source = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

/** Every rule is on, target-size too, which axe leaves out by default. */
const options: Axe.RunOptions = { resultTypes: ["violations"], rules: { "target-size": { enabled: true } } };

/** One line for each element that breaks a rule: the rule, the element's selector, and what is wrong. */
export async function axeFindings(page: Page): Promise<string[]> {
  // The page's policy forbids inline scripts; what a test evaluates is not subject to it.
  if (!(await page.evaluate(() => "axe" in globalThis))) await page.evaluate(source);
  return page.evaluate(async (runOptions) => {
    const { axe } = globalThis as unknown as { axe: typeof Axe };
    const { violations } = await axe.run(document, runOptions);
    return violations.flatMap(({ id, help, nodes }) =>
      nodes.map(({ target, any, all, none }) => {
        const why = [...any, ...all, ...none].map(({ message }) => message).join("; ");
        return `${id}: ${target.join(" ")}: ${why || help}`;
      }),
    );
  }, options);
}
