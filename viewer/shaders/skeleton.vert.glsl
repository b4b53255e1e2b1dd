#version 330 core
layout(location = 0) in vec3 in_Vertex;
layout(location = 1) in vec4 in_Color;
layout(location = 2) in vec3 in_Normal;
out vec4 b_color;
out vec3 b_position;
out vec3 b_normal;
uniform mat4 u_mvpMatrix;
void main() {
   b_color = in_Color;
   b_position = in_Vertex;
   b_normal = in_Normal;
	gl_Position =  u_mvpMatrix * vec4(in_Vertex, 1);
}