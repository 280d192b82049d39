import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { RemoteIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "remote",
  title: () => label("IDS_REMOTE_CONTROL"),
  order: 40,
  icon: RemoteIcon,
  component: lazy(async () => (await import("./remote-panel")).RemotePanel),
};
