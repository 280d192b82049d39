import type { View } from "../../app/view";
import { SendIcon } from "../../ui/icons";
import { RequestPanel } from "./request-panel";
import { label } from "./words";

export const view: View = {
  id: "request",
  title: () => label("IDS_REQUEST"),
  order: 20,
  icon: SendIcon,
  component: RequestPanel,
  column: true,
};
