import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { SetIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "set",
  title: () => label("IDS_TELEVISION"),
  order: 21,
  icon: SetIcon,
  component: lazy(async () => (await import("./set-panel")).SetPanel),
};
